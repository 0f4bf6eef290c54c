# vy_settings: the compiler settings of our own code. Everything of ours links it privately, so that
# nothing of it reaches a program that uses the installed libraries.

option(VY_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
set(VY_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them: address,undefined or thread")

add_library(vy_settings INTERFACE)
target_compile_definitions(vy_settings INTERFACE
    QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING QT_NO_FOREACH QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_STRICT_ITERATORS QT_DEPRECATED_WARNINGS QT_DISABLE_DEPRECATED_BEFORE=0x050F00)
target_compile_options(vy_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${VY_WARNINGS_AS_ERRORS}>:-Werror>)
if(VY_SANITIZE)
    target_compile_options(vy_settings INTERFACE
        -fsanitize=${VY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vy_settings INTERFACE -fsanitize=${VY_SANITIZE})
endif()
if(VY_BUILD_FUZZERS) # the fuzzer sees which branches of the libraries an input takes
    target_compile_options(vy_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()
