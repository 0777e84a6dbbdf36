# What find_package(velmorprocessing) reads from an installation.
include(CMakeFindDependencyMacro)
find_dependency(TBB)
include("${CMAKE_CURRENT_LIST_DIR}/velmorprocessingTargets.cmake")
