# Options of our own targets; nothing here reaches a user of the library.
add_library(zav_build_options INTERFACE)
# Mistakes with containers and spans stop a debugged program; releases do not pay for it.
target_compile_definitions(zav_build_options INTERFACE
  $<$<NOT:$<CONFIG:Release>>:_GLIBCXX_ASSERTIONS>)
target_compile_options(zav_build_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor
  -Woverloaded-virtual -Wold-style-cast -Wcast-align -Wdouble-promotion
  $<$<BOOL:${ZAV_WERROR}>:-Werror>
  # GCC 12 warns of plain std::string concatenation (its bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # No binary names a folder of the machine that built it. Coverage notes need the real names; the
  # positions of fatal stops stay the same there.
  $<IF:$<BOOL:${ZAV_COVERAGE}>,-fmacro-prefix-map,-ffile-prefix-map>=${PROJECT_SOURCE_DIR}/=)
if(ZAV_SANITIZE)
  target_compile_options(zav_build_options INTERFACE
    -fsanitize=${ZAV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zav_build_options INTERFACE -fsanitize=${ZAV_SANITIZE})
endif()
if(ZAV_COVERAGE)
  target_compile_options(zav_build_options INTERFACE --coverage -fprofile-abs-path -fprofile-update=atomic)
  target_link_options(zav_build_options INTERFACE --coverage)
  add_library(zav_coverage_at_abort OBJECT ${CMAKE_CURRENT_LIST_DIR}/CoverageAtAbort.cpp)
  set_target_properties(zav_coverage_at_abort PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_link_libraries(zav_build_options INTERFACE $<TARGET_OBJECTS:zav_coverage_at_abort>)
endif()
