"""Tables of colour spaces, and what they say of single pixels, are those of the C exports."""

import numpy as np
import pytest
import quillon
from c_library import Image, call
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, SIZES, picture


@pytest.mark.parametrize("space, create, get_point", [
    ("hsi", "IxCreateCToHSI", "IxGetHSIPoint"), ("lab", "IxCreateCToLab", "IxGetCIELabPoint")])
def test_tables_and_points_are_those_of_their_exports(space, create, get_point):
    expected_tables = [np.zeros(1 << 24, np.uint8) for _ in range(3)]
    call(create, *expected_tables)
    for table, expected in zip(getattr(quillon, f"{space}_tables")(), expected_tables):
        assert_array_equal(table, expected)
    for size in SIZES:
        image = picture(size, color=True)
        point, y, x = np.zeros(3, np.uint8), size[0] - 1, size[1] // 2
        call(get_point, Image(image), x, y, point)
        for lay in LAYOUTS.values():
            assert tuple(getattr(quillon, f"get_{space}_point")(lay(image), x, y)) == tuple(point)
