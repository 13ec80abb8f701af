"""Every error of the interpolant reaches Python as InterpolationError (a ValueError) with its
identifier and the catalog's text; warnings arrive as InterpolationWarning on the calling
line; queries without a host counterpart raise Python exceptions (more in test_hostile_input)."""

import pickle
import sys
import warnings

import numpy as np
import pytest
import scipy.sparse

import mathinterp
from mathinterp import _core, griddedInterpolant
from conftest import GI, expect_error, needs_class

x4 = np.array([0.0, 1.0, 2.0, 3.0])
v4 = np.array([1.0, 3.0, 2.0, 5.0])
xy = (np.array([0.0, 1.0, 2.0]), np.array([0.0, 1.0, 2.0, 3.0]))
V34 = np.arange(12.0).reshape(3, 4)


# Construction errors whose input is a Python object of its own kind (sparse matrices, integer
# and mixed-precision arrays, meshgrid arrays, 2-D grids, strings): the engine's checks and
# their order are the C++ suite's.
CONSTRUCTION_ERRORS = [
    ("NonFloatValuesErrId", ("linear",)),
    ("NonFloatValuesErrId", ((x4,), np.arange(4))),
    ("SparseInterpValuesErrId", ((x4,), scipy.sparse.csc_matrix(v4.reshape(4, 1)))),
    ("DegenerateGridErrId", (np.empty(0),)),
    ("NumCoordsGridNdimsMismatchErrId", ((x4, x4, x4), V34)),
    ("NonFloatInpPtsErrId", ((np.arange(4),), v4)),
    ("SparseDataPtErrId", ((scipy.sparse.csc_matrix(x4.reshape(4, 1)),), v4)),
    ("ComplexDataPointErrId", ((x4 + 0j,), v4)),
    ("GridOfMixedDataTypesErrId", ((xy[0], xy[1].astype(np.float32)), V34)),
    ("NonVecCompVecErrId", ((np.zeros((2, 2)),), v4)),
    ("CompVecValueMismatchErrId", ((x4[:3],), v4)),
    ("NonMonotonicCompVecsErrId", ((x4[::-1].copy(),), v4)),
    ("NdgridNotMeshgrid2DErrId", (*np.meshgrid(*xy), V34.T.copy())),
    ("BadInterpTypeErrId", (x4, v4, "bilinear")),
    ("ExtrapolationMethodInvalid", (x4, v4, "linear", "sideways")),
]

# A word that is not scalar text: the word parser's error or the string facility's.
WORD_ERRORS = {GI + "BadInterpTypeErrId", "QUARTZ:string:MustBeStringScalarOrCharacterVector"}


@needs_class
@pytest.mark.parametrize("key,args", CONSTRUCTION_ERRORS, ids=[c[0] for c in CONSTRUCTION_ERRORS])
def test_construction_errors_carry_their_identifier(key, args):
    e = expect_error(key, griddedInterpolant, *args)
    assert e.identifier in str(e)


@needs_class
def test_non_scalar_text_words_are_rejected():
    for word in (np.array(["linear", "nearest"]), np.array([["linear", "linear"]])):
        with pytest.raises(mathinterp.InterpolationError) as info:
            griddedInterpolant(x4, v4, word)
        assert info.value.identifier in WORD_ERRORS


@needs_class
def test_evaluation_errors_and_their_arguments():
    F = griddedInterpolant(x4, v4)
    for _ in range(2):  # and the object goes on
        e = expect_error("BadArgInterpEvalErrId", F, x4, x4)
        assert e.arguments == (1,)
    e = expect_error("CompVecValueMismatchErrId", griddedInterpolant, (x4[:3],), v4)
    assert e.arguments == (1, 4)
    expect_error("NonFloatInpPtsErrId", F, "1.5")
    expect_error("ComplexDataPointErrId", F, x4 + 1j)
    expect_error("SparseDataPtErrId", F, scipy.sparse.csc_matrix(x4.reshape(4, 1)))
    expect_error("NumCoordsGridNdimsMismatchErrId", F, (x4, x4))
    np.testing.assert_array_equal(F(x4), v4)
    G = griddedInterpolant(xy, V34)
    expect_error("BadArgInterpEvalErrId", G, np.zeros((5, 3)))
    expect_error("InputMixSizeErrId", G, x4, x4[:3])
    expect_error("QueryOfMixedDataTypesErrId", G, x4, x4.astype(np.float32))
    assert G((np.empty(0), x4)).shape == (0, 4)


def test_error_classes_and_what_host_errors_become():
    assert issubclass(mathinterp.InterpolationError, ValueError)
    assert issubclass(mathinterp.MethodNotBuiltError, mathinterp.InterpolationError)
    assert issubclass(mathinterp.MethodNotBuiltError, NotImplementedError)
    assert issubclass(mathinterp.InterpolationWarning, Warning)
    with pytest.raises(mathinterp.InterpolationError) as info:
        _core._raise_error("QUARTZ:griddedInterpolant", "CompVecValueMismatchErrId", (2, 7))
    e = info.value
    assert e.identifier == GI + "CompVecValueMismatchErrId" and e.arguments == (2, 7)
    assert "2" in e.message and "7" in e.message  # the catalog filled the placeholders
    again = pickle.loads(pickle.dumps(e))
    assert (again.identifier, again.message, again.arguments) == (e.identifier, e.message, (2, 7))
    with pytest.raises(MemoryError):  # the host's out-of-memory error
        _core._raise_error("QUARTZ", "nomem")
    with pytest.raises(mathinterp.MethodNotBuiltError) as info:
        _core._raise_error("", 'The interpolation method "makima" is not available in this build.')
    assert info.value.method == "makima" and info.value.identifier == ""


# ---- warnings ----------------------------------------------------------------------------


def package_call(key):
    # Stands for a package function: the warning names the line that called it.
    _core._issue_warning("QUARTZ:griddedInterpolant", key)


def test_host_warnings_become_interpolation_warnings_on_the_calling_line():
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        package_call("MeshgridEval2DWarnId"); line = sys._getframe().f_lineno  # fmt: skip
    assert len(caught) == 1
    w = caught[0]
    assert issubclass(w.category, mathinterp.InterpolationWarning)
    assert w.message.identifier == GI + "MeshgridEval2DWarnId"
    assert "meshgrid" in w.message.message
    assert (w.filename, w.lineno) == (__file__, line)
