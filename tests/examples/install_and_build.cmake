# Installs the built libraries into PLACE, builds the example there and runs it on a
# cache file that an installed command has made.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

file(REMOVE_RECURSE ${PLACE})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PLACE}/prefix --component library)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PLACE}/command)
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

file(WRITE ${PLACE}/points.csv "x,y,z\n0,0,0\n0.1,0,0\n0,0.1,0\n0,0,0.1\n")
set(velmor ${PLACE}/command/bin/velmor)
file(MAKE_DIRECTORY ${PLACE}/cache)
run(${velmor} import ${PLACE}/points.csv --object water --cache ${PLACE}/points)
run(${velmor} surface ${PLACE}/points --object water --render-component Particle
  --vdb "${PLACE}/cache/water.####.vdb")
execute_process(COMMAND ${PLACE}/build/surface-counts ${PLACE}/cache "name=water, frame=1"
  RESULT_VARIABLE code OUTPUT_VARIABLE counts ERROR_VARIABLE message)
if(NOT code EQUAL 0 OR NOT counts MATCHES "^[1-9][0-9]* vertices, [1-9][0-9]* triangles")
  message(FATAL_ERROR "the example gave ${code}: ${counts}${message}")
endif()
