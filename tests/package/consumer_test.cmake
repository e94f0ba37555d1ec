# cmake -P script: install, build examples/ against the install, run it.
set(prefix ${WORK_DIR}/prefix)
set(build ${WORK_DIR}/build)
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message("${out}")
endfunction()

set(cfg ${CONFIG})
if(NOT cfg)
  set(cfg RelWithDebInfo)
endif()
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} --config ${cfg})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples -B ${build} -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=${cfg})
run(${CMAKE_COMMAND} --build ${build} --config ${cfg})
# The consumer locates the installed shared library through its RUNPATH.
run(${build}/metrofit_example ${SOURCE_DIR}/examples/data/sphere.txt)
if(NOT EXISTS ${prefix}/lib/pkgconfig/metrofit.pc AND NOT EXISTS ${prefix}/lib64/pkgconfig/metrofit.pc
   AND NOT EXISTS ${prefix}/lib/x86_64-linux-gnu/pkgconfig/metrofit.pc)
  message(FATAL_ERROR "metrofit.pc was not installed")
endif()
