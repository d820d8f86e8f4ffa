# The vorn package under test comes from PYTHONPATH (the build tree, set by CTest); the
# repository's paths for the tests that read files.
import os
import pathlib

import pytest

SOURCE_DIR = pathlib.Path(os.environ.get("VORN_SOURCE_DIR",
                                         pathlib.Path(__file__).resolve().parents[2]))


@pytest.fixture
def source_dir():
    return SOURCE_DIR
