from setuptools import setup

setup(cffi_modules=["native_build.py:ffibuilder"])
