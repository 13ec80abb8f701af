"""Calls that break the stubs' types; mypy must report every line marked "error"
(tests/install/test_typing.py counts them), which proves the stubs are the ones read."""

import numpy as np

import mathinterp

F = mathinterp.griddedInterpolant(np.arange(3.0), np.arange(3.0))
F.Method = 3  # error: a method word is a str
mathinterp.set_num_threads("two")  # error: a thread count is an int
n: str = mathinterp.get_num_threads()  # error: returns int
mathinterp.interp1Fcn(np.arange(3.0), np.arange(3.0), "linear")  # error: five arguments
mathinterp.no_such_function()  # error: not a public name
