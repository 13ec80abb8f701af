# Sphinx configuration of the documentation site (bash scripts/docs.sh builds it with -W).
# The pages are the Markdown files in this folder (MyST); the Python reference comes from the
# docstrings of the built package, so PYTHONPATH must name build/python (scripts/docs.sh).
import os
import re


project = "mathinterp"
author = "the mathinterp developers"
with open(os.path.join(os.path.dirname(__file__), "..", "CMakeLists.txt")) as f:
    release = re.search(r"project\(mathinterp VERSION ([0-9.]+)", f.read()).group(1)
version = release
copyright = "the mathinterp developers"

extensions = ["myst_parser", "sphinx.ext.autodoc", "sphinx.ext.napoleon"]
source_suffix = {".md": "markdown", ".rst": "restructuredtext"}
exclude_patterns = ["_build", "_generated", "gallery"]
myst_enable_extensions = ["colon_fence", "dollarmath"]
myst_heading_anchors = 3

html_theme = "sphinx_rtd_theme"
html_title = f"mathinterp {release}"
html_show_sourcelink = False

autodoc_member_order = "bysource"
autodoc_typehints = "description"
napoleon_numpy_docstring = True
napoleon_google_docstring = False
primary_domain = "py"
