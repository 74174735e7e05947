# What every target of the project has in common. `qzm_options` carries the warnings and the
# instrumentation; `qzm_product` adds what only the shipped code is built with.

add_library(qzm_options INTERFACE)
target_compile_options(qzm_options INTERFACE
  -Wall -Wextra -Wpedantic -Wformat=2 -Wshadow -Wconversion
  $<$<BOOL:${QZM_WERROR}>:-Werror>)
target_include_directories(qzm_options INTERFACE ${PROJECT_SOURCE_DIR})
if(NOT QZM_TRACE)
  target_compile_definitions(qzm_options INTERFACE QZM_NO_TRACE)
endif()

if(QZM_SANITIZE)
  target_compile_options(qzm_options INTERFACE
    -fsanitize=${QZM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  target_link_options(qzm_options INTERFACE -fsanitize=${QZM_SANITIZE})
endif()
if(QZM_FUZZER)
  target_compile_options(qzm_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(QZM_COVERAGE)
  target_compile_options(qzm_options INTERFACE --coverage)
  target_link_options(qzm_options INTERFACE --coverage)
endif()

# No exceptions and no run-time type information: nothing here throws, and without them a static
# program starts without the unwinder's and the library's initialisers.
add_library(qzm_product INTERFACE)
target_link_libraries(qzm_product INTERFACE qzm_options)
target_compile_options(qzm_product INTERFACE -fno-exceptions -fno-rtti)

# qzm_program(NAME SOURCES...): a shipped or sample program, linked statically unless told otherwise.
function(qzm_program name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE qzm_product)
  if(QZM_STATIC AND NOT QZM_SANITIZE AND NOT QZM_COVERAGE AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(${name} PRIVATE -static)
  endif()
endfunction()
