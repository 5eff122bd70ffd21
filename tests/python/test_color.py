"""Colour spaces give the bytes of their C exports."""

import numpy as np
import pytest
import quillon
from c_library import Image, call, filtered
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, SIZES, picture


@pytest.mark.parametrize("space, create", [("hsi", "IxCreateCToHSI"), ("lab", "IxCreateCToLab")])
def test_tables_conversions_and_channels_give_the_bytes_of_their_exports(space, create):
    names = {"hsi": ("IxColorToHSI", "IxGetHSI", "IxGetHSIPoint"),
             "lab": ("IxColorToLab", "IxGetCIELab", "IxGetCIELabPoint")}[space]
    convert, get, get_point = (getattr(quillon, name) for name in (
        f"color_to_{space}", f"get_{space}", f"get_{space}_point"))
    tables = getattr(quillon, f"{space}_tables")()
    expected_tables = [np.zeros(1 << 24, np.uint8) for _ in range(3)]
    call(create, *expected_tables)
    for table, expected in zip(tables, expected_tables):
        assert_array_equal(table, expected)

    for size in SIZES:
        image = picture(size, color=True)
        expected = filtered(names[0], image, *expected_tables, color=True)
        for layout, lay in LAYOUTS.items():
            source = lay(image)
            assert_array_equal(convert(source, tables), expected, layout)
            assert_array_equal(source, image, "the source changed")
            assert convert(source, tables, out=source) is source
            assert_array_equal(source, expected, layout)
            for channel in range(3):
                assert_array_equal(get(source, channel), filtered(names[1], expected, channel))
            point, y, x = np.zeros(3, np.uint8), size[0] - 1, size[1] // 2
            call(names[2], Image(expected), x, y, point)
            assert tuple(get_point(source, x, y)) == tuple(point)
