"""Every Python block of the module's documentation page runs as it is printed."""

import os
import re
import textwrap

import pytest

BLOCKS = []
if "PYTHON_PAGE" in os.environ:
    with open(os.environ["PYTHON_PAGE"], encoding="utf-8") as page:
        BLOCKS = re.findall(r"^```python\n(.*?)^```", page.read(), re.MULTILINE | re.DOTALL)


@pytest.mark.skipif(not BLOCKS, reason="needs the page")
def test_every_block_of_the_page_runs(capsys):
    assert "asyncio.run(main())" in BLOCKS[0]
    exec(BLOCKS[0], {})
    assert capsys.readouterr().out == "[Pool(id=1, ranges=0, addresses=254, sessions=0)]\n"
    within = "import asyncio\nfrom fwx_nat64 import Client\nasync def main():\n    async with Client() as client:\n"
    for block in BLOCKS[1:]:
        exec(within + textwrap.indent(block, " " * 8) + "asyncio.run(main())\n", {})
    said = capsys.readouterr().out
    assert (
        "2001:db8:64::1 198.18.0.1 active" in said and "Error('the server does not take this value (0x6006)')" in said
    )
