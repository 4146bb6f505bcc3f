# What the package and guide tests need to know about this build.

# The package test checks the packages scripts/package built with
# dpkg-buildpackage and installed (RV_PACKAGE_DIR names them); elsewhere it
# is skipped.
if(TARGET package_install_test)
  target_compile_definitions(package_install_test PRIVATE
    RV_VERSION="${PROJECT_VERSION}"
    RV_PACKAGE_LIBDIR="usr/${CMAKE_INSTALL_LIBDIR}"
    RV_INTEGRATION_DOC="${CMAKE_SOURCE_DIR}/docs/integration.md")
  target_link_libraries(package_install_test PRIVATE ${CMAKE_DL_LIBS})
endif()

# The guide's tables are read from the source tree and held against the
# built records and return codes.
if(TARGET integration_doc_test)
  target_compile_definitions(integration_doc_test PRIVATE
    RV_INTEGRATION_DOC="${CMAKE_SOURCE_DIR}/docs/integration.md")
endif()

# The example is run as a runtime against a simulated controller.
if(TARGET minimal_runtime_test)
  if(TARGET minimal_runtime)
    add_dependencies(minimal_runtime_test minimal_runtime Quorvel_RV_Series)
    target_compile_definitions(minimal_runtime_test PRIVATE
      RV_EXAMPLE_FILE="$<TARGET_FILE:minimal_runtime>"
      RV_LIBRARY_FILE="$<TARGET_FILE:Quorvel_RV_Series>")
  endif()
endif()
