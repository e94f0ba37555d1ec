# cmake -P script: install into a temporary prefix, then import the installed package from there
# and fit, as a user of the installed copy would. The module must find the installed library
# through its $ORIGIN-relative RUNPATH, not the build tree.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
set(cfg ${CONFIG})
if(NOT cfg)
  set(cfg RelWithDebInfo)
endif()

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
                        --config ${cfg}
                RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed (${rc}):\n${err}")
endif()

if(IS_ABSOLUTE "${PACKAGE_DIR}")
  message(FATAL_ERROR "METROFIT_PYTHON_INSTALL_DIR is absolute: this test installs under a prefix")
endif()
set(script [=[
import os, sys
import metrofit
prefix = os.path.realpath(sys.argv[1])
assert os.path.realpath(metrofit.__file__).startswith(prefix), metrofit.__file__
points = [[10, 0, 0], [0, 10, 0], [-10, 0, 0], [0, 0, 10], [0, -10, 0], [0, 0, -10]]
result = metrofit.fit("sphere", points)
assert result.valid and abs(result.radius - 10.0) < 1e-9, result
with open("/proc/self/maps") as maps:
    libraries = {line.split()[-1] for line in maps if "libmetrofit" in line}
assert libraries and all(os.path.realpath(l).startswith(prefix) for l in libraries), libraries
print("installed package:", metrofit.__file__, "library:", ", ".join(sorted(libraries)))
]=])
# Run from the prefix with only the installed site-packages on the path.
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH
                        PYTHONPATH=${prefix}/${PACKAGE_DIR} PYTHONDONTWRITEBYTECODE=1
                        ${PYTHON} -c "${script}" ${prefix}
                WORKING_DIRECTORY ${WORK_DIR}
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the installed package does not work (${rc}):\n${out}\n${err}")
endif()
message("${out}")
