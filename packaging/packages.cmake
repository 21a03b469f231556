# The Debian packages, one for each component of the installation; packaging/make-packages builds them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The sigweave maintainers <maintainers@sigweave.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has a first line of its own
# Libraries that a package needs are found out from its files; the one of this tree is named, for it is not installed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)

# What packages of others that use the library will depend on; and that the system's list of libraries is to be renewed.
set(control ${CMAKE_BINARY_DIR}/install/control)
file(WRITE ${control}/shlibs "libsigweave 0 libsigweave0 (>= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)

# Each package brings its licence and its history; an installation without packages has LICENSE.
function(sigweave_gzip file)
  find_program(GZIP gzip)
  if(GZIP)
    execute_process(COMMAND ${GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/${file}
                    OUTPUT_FILE ${CMAKE_BINARY_DIR}/install/${file}.gz COMMAND_ERROR_IS_FATAL ANY)
  endif()
endfunction()
sigweave_gzip(changelog)
sigweave_gzip(sigweave.1)
install(FILES ${CMAKE_BINARY_DIR}/install/sigweave.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT host OPTIONAL)

# sigweave_package(COMPONENT PACKAGE SECTION section SUMMARY text DESCRIPTION text [DEPENDS text] [RECOMMENDS text])
macro(sigweave_package component package)
  cmake_parse_arguments(ARG "" "SECTION;SUMMARY;DESCRIPTION;DEPENDS;RECOMMENDS" "" ${ARGN})
  string(TOUPPER ${component} prefix)
  set(prefix CPACK_DEBIAN_${prefix})
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(${prefix}_PACKAGE_NAME ${package})
  set(${prefix}_PACKAGE_SECTION ${ARG_SECTION})
  set(${prefix}_PACKAGE_SHLIBDEPS ON)
  set(${prefix}_PACKAGE_DEPENDS "${ARG_DEPENDS}")
  set(${prefix}_PACKAGE_RECOMMENDS "${ARG_RECOMMENDS}")
  set(${prefix}_DESCRIPTION "${ARG_SUMMARY}\n${ARG_DESCRIPTION}")
  install(FILES packaging/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${CMAKE_BINARY_DIR}/install/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          COMPONENT ${component} EXCLUDE_FROM_ALL OPTIONAL)
endmacro()

sigweave_package(library libsigweave0
  SECTION libs
  SUMMARY "modular measurement and signal processing: shared library"
  DESCRIPTION "sigweave runs graphs of signal-processing modules. This is the library that
the program and every module share: typed ports, blocks with their time, rate,
range and unit, settings and messages.")
sigweave_package(development libsigweave-dev
  SECTION libdevel
  SUMMARY "modular measurement and signal processing: development files"
  DESCRIPTION "Headers, CMake and pkg-config files and an example, to write modules and hosts
for sigweave."
  DEPENDS "libsigweave0 (= ${PROJECT_VERSION})"
  RECOMMENDS "sigweave, sigweave-modules, cmake, make, g++")
sigweave_package(host sigweave
  SECTION science
  SUMMARY "modular measurement and signal processing: the program"
  DESCRIPTION "Checks and runs graphs of signal-processing modules from the command line,
names every mistake and its remedy, reports figures as a table or as JSON,
and writes a project for a module of one's own."
  DEPENDS "libsigweave0 (>= ${PROJECT_VERSION})"
  RECOMMENDS "sigweave-modules")
sigweave_package(modules sigweave-modules
  SECTION science
  SUMMARY "modular measurement and signal processing: modules"
  DESCRIPTION "Modules for sigweave that read sound and measurement files, generate and
filter signals, measure levels and spectra, draw pictures, write tables, and
record and play every bit."
  DEPENDS "libsigweave0 (>= ${PROJECT_VERSION})"
  RECOMMENDS "gnuplot-nox | gnuplot")
if(TARGET sigweave-studio)
  sigweave_package(studio sigweave-studio
    SECTION science
    SUMMARY "modular measurement and signal processing: graphs in the browser"
    DESCRIPTION "Serves a page on which graphs for sigweave are drawn, set, run and watched:
'sigweave studio' prints its address. Works without a connection to others."
    DEPENDS "sigweave (= ${PROJECT_VERSION})"
    RECOMMENDS "sigweave-modules")
endif()

if(SIGWEAVE_HAS_PYTHON)
  # Built for one version of Python, which the names of its files say; the next one would not find them.
  math(EXPR next "${Python_VERSION_MINOR} + 1")
  sigweave_package(python python3-sigweave
    SECTION python
    SUMMARY "modular measurement and signal processing: Python package"
    DESCRIPTION "Builds, checks and runs graphs of signal-processing modules from Python, with
their signals and recordings as NumPy arrays, and runs modules that are written
in Python."
    DEPENDS "libsigweave0 (= ${PROJECT_VERSION}), python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), python3 (<< ${Python_VERSION_MAJOR}.${next}), python3-numpy"
    RECOMMENDS "sigweave-modules, python3-pandas, python3-xarray")
endif()

include(CPack)
