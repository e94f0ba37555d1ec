# The command a bundled example file names on its "# fit with: metrofit fit SHAPE FILE ..."
# line: the shape, and the options after the file name as a list. The file becomes a configure
# dependency, so editing the command reconfigures.
function(metrofit_example_command file shape_var options_var)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(STRINGS ${file} command REGEX "^# fit with: metrofit fit ")
  if(NOT command MATCHES "^# fit with: metrofit fit ([^ ]+) [^ ]+(.*)$")
    message(FATAL_ERROR "${file} names no '# fit with: metrofit fit SHAPE FILE' command")
  endif()
  set(${shape_var} ${CMAKE_MATCH_1} PARENT_SCOPE)
  string(STRIP "${CMAKE_MATCH_2}" options)
  string(REPLACE " " ";" options "${options}")
  set(${options_var} "${options}" PARENT_SCOPE)
endfunction()
