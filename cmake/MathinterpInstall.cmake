# Install rules: `cmake --install build --prefix P` puts the loadable module, the host library,
# the public headers and the CMake package under P (paths relative to P, so the tree may move);
# the Python package is the separate component "python" that setup.py installs.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The engine as an archive of the module's own objects (no second compile), so that a program
# can use GriddedInterpolant directly as the README shows; the module hides these symbols.
add_library(mathinterp STATIC $<TARGET_OBJECTS:mathinterp_objects>)
target_include_directories(mathinterp PUBLIC $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>
                                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(mathinterp PUBLIC platform TBB::tbb)
set_target_properties(qzmathinterp PROPERTIES EXPORT_NAME module)

# Installed libraries find each other next to themselves (lib/ or the Python package).
set_target_properties(qzmathinterp PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS mathinterp platform qzmathinterp EXPORT mathinterpTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Public headers: the embedded host's, the interpolant's (with the two it includes) and the
# module's entry points; kernels, drivers and host glue stay inside.
install(DIRECTORY platform/include/platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES mathinterp/ModuleExports.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mathinterp)
install(FILES mathinterp/interpolant/GriddedInterpolant.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mathinterp/interpolant)
install(FILES mathinterp/core/Evaluator.hpp mathinterp/core/Numeric.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mathinterp/core)

set(_cfgdir ${CMAKE_INSTALL_LIBDIR}/cmake/mathinterp)
install(EXPORT mathinterpTargets NAMESPACE mathinterp:: DESTINATION ${_cfgdir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/mathinterpConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/mathinterpConfig.cmake
                              INSTALL_DESTINATION ${_cfgdir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/mathinterpConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/mathinterpConfig.cmake
              ${CMAKE_BINARY_DIR}/mathinterpConfigVersion.cmake DESTINATION ${_cfgdir})

# The Python package (only on request: cmake --install B --component python --prefix DIR puts
# DIR/mathinterp/ with the extension and the two libraries it loads).
if(TARGET _core)
  set_target_properties(_core PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS _core qzmathinterp platform LIBRARY DESTINATION mathinterp
          COMPONENT python EXCLUDE_FROM_ALL)
  install(DIRECTORY bindings/python/mathinterp/ DESTINATION mathinterp
          COMPONENT python EXCLUDE_FROM_ALL PATTERN __pycache__ EXCLUDE)
endif()

# A sanitizer build's libraries need the sanitizer runtime in every program that links them,
# which an installed package does not carry: the install tests run in plain builds only.
if(MATHINTERP_TESTS AND NOT MATHINTERP_SANITIZE)
  add_subdirectory(tests/install)
endif()
