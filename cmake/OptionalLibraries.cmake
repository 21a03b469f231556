# Libraries that not every machine has: what needs them is left out there.
find_package(PkgConfig REQUIRED)
pkg_check_modules(HDF5 QUIET hdf5)
# By the name that the system's loader finds: the folder that hdf5.pc names would get into the run path.
find_library(SIGWEAVE_HDF5_LIBRARY NAMES hdf5_serial hdf5)
find_path(SIGWEAVE_MATIO_INCLUDE matio.h)
find_library(SIGWEAVE_MATIO_LIBRARY matio)
