# run(command...): runs a command, fails the script with its output when it
# fails, and leaves its standard output in RUN_OUTPUT.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT code EQUAL 0)
    message(FATAL_ERROR "failed (${code}): ${ARGN}\n${out}\n${err}")
  endif()
  set(RUN_OUTPUT "${out}" PARENT_SCOPE)
endfunction()
