import os
import pathlib

import pytest
from browser import Browser, run


@pytest.fixture(scope="session")
def window(tmp_path_factory):
    browser = Browser(tmp_path_factory.mktemp("downloads"))
    yield browser
    browser.close()


@pytest.fixture(scope="session")
def quillon():
    """Runs the built command line; rejected parts are no failure."""
    program = pathlib.Path(os.environ["QUILLON_BUILD"]) / "src/quillon"
    return lambda *words: run(program, *words, allowed=(0, 3))
