# OpenVDB and the log library that it writes to, by their installed files: the
# module that Debian ships looks for boost and other headers that we never need.
find_library(VELMOR_OPENVDB_LIBRARY openvdb REQUIRED)
find_path(VELMOR_OPENVDB_INCLUDE openvdb/openvdb.h REQUIRED)
find_library(VELMOR_LOG4CPLUS_LIBRARY log4cplus REQUIRED)
find_library(VELMOR_IMATH_LIBRARY NAMES Imath Imath-3_1 REQUIRED)
set(VELMOR_OPENVDB_LIBRARIES
  ${VELMOR_OPENVDB_LIBRARY} ${VELMOR_LOG4CPLUS_LIBRARY} ${VELMOR_IMATH_LIBRARY} TBB::tbb)
add_library(velmor_openvdb INTERFACE)
add_library(Velmor::openvdb ALIAS velmor_openvdb)
target_include_directories(velmor_openvdb SYSTEM INTERFACE ${VELMOR_OPENVDB_INCLUDE})
# Type names of OpenVDB's templates are registered once per process, in variables
# that its library and ours must share: hidden, each would have its own, and the
# flags that guard them would still be common.
target_compile_options(velmor_openvdb INTERFACE -fvisibility=default)
# It negates the background of int grids as it reads, the smallest int too.
target_compile_options(velmor_openvdb INTERFACE
  $<$<CONFIG:Sanitized>:-fno-sanitize=signed-integer-overflow>)
target_link_libraries(velmor_openvdb INTERFACE ${VELMOR_OPENVDB_LIBRARIES})
