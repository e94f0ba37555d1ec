# cmake -P script: runs the metrofit tool once and checks its exit status and output.
#   CLI            path of the tool
#   ARGS           its arguments, separated by '|'
#   INPUT          optional file fed to standard input
#   EXPECT_RC      regular expression the exit status must match
#   EXPECT_STDOUT  optional regular expression the standard output must match
#   EXPECT_STDERR  optional regular expression the standard error must match
#   JSON_KEYS      optional '|'-separated keys that must exist in the JSON output; a nested
#                  key is written with dots ("sizes.radius", "centre.0")
#   JSON_EQUALS    optional '|'-separated key=value pairs the JSON output must hold
#   ENVIRONMENT    optional '|'-separated NAME=VALUE settings for the run
#   OUTPUT_FILE    optional file the run must write (removed before and after the run)
#   OUTPUT_MATCHES regular expression its content must match
string(REPLACE "|" ";" args "${ARGS}")
set(input_option)
if(INPUT)
  set(input_option INPUT_FILE ${INPUT})
endif()
string(REPLACE "|" ";" environment "${ENVIRONMENT}")
if(OUTPUT_FILE)
  file(REMOVE ${OUTPUT_FILE})
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E env ${environment} ${CLI} ${args} ${input_option}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)

set(report "exit status: ${rc}\n--- stdout ---\n${out}\n--- stderr ---\n${err}")
# A crash gives a text such as "Segmentation fault" here, which no expected status matches.
if(NOT rc MATCHES "^(${EXPECT_RC})$")
  message(FATAL_ERROR "expected exit status ${EXPECT_RC}\n${report}")
endif()
if(DEFINED EXPECT_STDOUT AND NOT out MATCHES "${EXPECT_STDOUT}")
  message(FATAL_ERROR "stdout does not match '${EXPECT_STDOUT}'\n${report}")
endif()
if(DEFINED EXPECT_STDERR AND NOT err MATCHES "${EXPECT_STDERR}")
  message(FATAL_ERROR "stderr does not match '${EXPECT_STDERR}'\n${report}")
endif()

if(DEFINED JSON_KEYS OR DEFINED JSON_EQUALS)
  string(JSON type ERROR_VARIABLE json_error TYPE "${out}")
  if(json_error OR NOT type STREQUAL "OBJECT")
    message(FATAL_ERROR "output is not a JSON object: ${json_error}\n${report}")
  endif()
endif()

string(REPLACE "|" ";" keys "${JSON_KEYS}")
foreach(key IN LISTS keys)
  string(REPLACE "." ";" path "${key}")
  string(JSON value ERROR_VARIABLE json_error GET "${out}" ${path})
  if(json_error)
    message(FATAL_ERROR "JSON key '${key}' missing: ${json_error}\n${report}")
  endif()
endforeach()

string(REPLACE "|" ";" pairs "${JSON_EQUALS}")
foreach(pair IN LISTS pairs)
  string(REGEX MATCH "^([^=]+)=(.+)$" matched "${pair}")
  set(key "${CMAKE_MATCH_1}")
  set(expected "${CMAKE_MATCH_2}")
  string(REPLACE "." ";" path "${key}")
  string(JSON value ERROR_VARIABLE json_error GET "${out}" ${path})
  # Compared as text: the tool writes every number in its shortest exact form.
  if(json_error)
    message(FATAL_ERROR "JSON key '${key}' missing: ${json_error}\n${report}")
  endif()
  if(NOT value STREQUAL expected)
    message(FATAL_ERROR "JSON '${key}' is '${value}', expected '${expected}'\n${report}")
  endif()
endforeach()

if(OUTPUT_FILE)
  if(NOT EXISTS ${OUTPUT_FILE})
    message(FATAL_ERROR "${OUTPUT_FILE} was not written\n${report}")
  endif()
  file(READ ${OUTPUT_FILE} written)
  file(REMOVE ${OUTPUT_FILE})
  if(NOT written MATCHES "${OUTPUT_MATCHES}")
    message(FATAL_ERROR "${OUTPUT_FILE} does not match '${OUTPUT_MATCHES}':\n${written}")
  endif()
endif()
