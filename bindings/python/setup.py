"""Builds the module against the installed headers and libraries, which pkg-config finds.

The build of the library generates _commands.py, the methods of the commands, and installs it with the headers. A build
or a source distribution of the module copies it from there. A build of the whole tree puts it in place itself.
"""

import subprocess
from pathlib import Path

from setuptools import setup
from setuptools.command.build_ext import build_ext
from setuptools.command.build_py import build_py
from setuptools.command.sdist import sdist

COMMANDS = Path("fwx_nat64/_commands.py")


def pkg_config(*options):
    """The output of pkg-config, split into words; empty if pkg-config or the development files are missing."""
    try:
        ran = subprocess.run(["pkg-config", *options, "fwx_nat64_model", "fwx_nat64"], capture_output=True, text=True)
    except FileNotFoundError:
        return []
    return ran.stdout.split() if ran.returncode == 0 else []


def add_commands(command, folder):
    """Copies the installed _commands.py into the folder, unless the sources or the folder have one."""
    if COMMANDS.exists() or (folder / COMMANDS).exists():
        return
    found = pkg_config("--variable=python_commands")
    if not found:
        raise SystemExit("pkg-config does not find fwx_nat64: install libfwx-nat64-dev and pkg-config")
    command.copy_file(found[-1], str(folder / COMMANDS))


class BuildExtension(build_ext):
    def finalize_options(self):
        super().finalize_options()
        self.include_dirs += [flag[2:] for flag in pkg_config("--cflags-only-I")]
        self.library_dirs += [flag[2:] for flag in pkg_config("--libs-only-L")]


class BuildModules(build_py):
    def run(self):
        super().run()
        add_commands(self, Path(self.build_lib))


class SourceDistribution(sdist):
    def make_release_tree(self, base_dir, files):
        super().make_release_tree(base_dir, files)
        add_commands(self, Path(base_dir))


setup(
    cffi_modules=["native_build.py:ffibuilder"],
    cmdclass={"build_ext": BuildExtension, "build_py": BuildModules, "sdist": SourceDistribution},
)
