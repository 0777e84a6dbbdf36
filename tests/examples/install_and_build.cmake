# Installs the built libraries into PLACE, builds the example there and runs it.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

file(REMOVE_RECURSE ${PLACE})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PLACE}/prefix --component library)
run(${CMAKE_COMMAND} -S ${EXAMPLE} -B ${PLACE}/build -G ${GENERATOR}
  -D CMAKE_PREFIX_PATH=${PLACE}/prefix -D CMAKE_CXX_COMPILER=${COMPILER}
  -D CMAKE_CXX_FLAGS=${FLAGS})
run(${CMAKE_COMMAND} --build ${PLACE}/build)

execute_process(COMMAND ${PLACE}/build/surface-counts
  RESULT_VARIABLE code ERROR_VARIABLE message)
if(NOT code EQUAL 2 OR NOT message MATCHES "^usage: surface-counts")
  message(FATAL_ERROR "the example gave ${code}: ${message}")
endif()
execute_process(COMMAND ${PLACE}/build/surface-counts ${PLACE} "frame=1"
  RESULT_VARIABLE code ERROR_VARIABLE message)
if(NOT code EQUAL 1 OR NOT message MATCHES "^error: Could not find objects in path")
  message(FATAL_ERROR "the example gave ${code}: ${message}")
endif()
