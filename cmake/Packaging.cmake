# Debian packages, one per install component, split as Debian splits its own
# library packages:
#   libpallion<so>       runtime: the shared libraries
#   libpallion-dev       development: headers, CMake package, pkg-config file, .so links
#   pallion              the command-line host
#   libpallion-outside   the stand-ins of the outside components, whole
#   python3-pallion      the Python package
# Libraries go to the multiarch folder (CMAKE_INSTALL_LIBDIR under /usr);
# each package carries /usr/share/doc/<package>/copyright.
set(pallion_so ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(pallion_deb_runtime libpallion${pallion_so})
set(pallion_deb_development libpallion-dev)
set(pallion_deb_host pallion)
set(pallion_deb_standins libpallion-outside)
set(pallion_deb_python python3-pallion)

set(pallion_components runtime development)
if(TARGET pallion_host)
  list(APPEND pallion_components host)
endif()
if(PALLION_STANDINS)
  list(APPEND pallion_components standins)
endif()
if(PALLION_PYTHON)
  list(APPEND pallion_components python)
endif()
foreach(component IN LISTS pallion_components)
  set(package ${pallion_deb_${component}})
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    COMPONENT ${component})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_FILE_NAME DEB-DEFAULT)
endforeach()

set(CPACK_PACKAGE_NAME pallion)
set(CPACK_PACKAGE_VENDOR "Pallion developers")
set(CPACK_PACKAGE_CONTACT "Pallion developers <pallion@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${pallion_components})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The stand-ins' libraries come from a package of this build, not from the system.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Pallion: shared libraries")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Pallion: headers, CMake package and pkg-config file")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
# The program and the Python module link the shared libraries like any host.
set(CPACK_COMPONENT_HOST_DEPENDS runtime)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
set(CPACK_COMPONENT_HOST_DESCRIPTION "Pallion: command-line converter of text tables and trajectories")
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION science)
set(CPACK_COMPONENT_STANDINS_DESCRIPTION "Pallion: stand-ins of the outside components, libraries and headers")
set(CPACK_DEBIAN_STANDINS_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Pallion: Python package, fields as numpy arrays")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
if(PALLION_PYTHON)
  # The module is built for one minor version of the interpreter.
  math(EXPR pallion_python_next "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), \
python3 (<< ${Python_VERSION_MAJOR}.${pallion_python_next}), python3-numpy")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pandas, python3-dask, python3-distributed")
endif()
if(PALLION_STANDINS)
  set(CPACK_COMPONENT_RUNTIME_DEPENDS standins)
  list(APPEND CPACK_COMPONENT_HOST_DEPENDS standins)
  list(APPEND CPACK_COMPONENT_PYTHON_DEPENDS standins)
endif()
include(CPack)
