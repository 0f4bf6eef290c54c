# cmake -DCOMPILER=c++ -DFLAGS=-I..;-std=.. -DUNIT=unit.cpp -DFORBIDDEN=regex -P reaches.cmake
#
# Fails when the unit includes, through whatever other header, one whose path matches.
execute_process(COMMAND ${COMPILER} ${FLAGS} -M ${UNIT}
    OUTPUT_VARIABLE rule ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${UNIT} has no dependencies: ${errors}")
endif()
separate_arguments(files UNIX_COMMAND "${rule}")
list(FILTER files INCLUDE REGEX "${FORBIDDEN}")
if(files)
    message(FATAL_ERROR " reaches what it must not: ${files}\n in ${UNIT}") # a blank: not wrapped
endif()
