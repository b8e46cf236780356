# The desktop app is the only part that needs Qt: the project must configure without it, with
# no target of the app left in the build, and no code outside the app may include its headers.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR} -G Ninja -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON
          -DTAVRIN_BENCH=OFF
  RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "the project does not configure without Qt:\n${errors}")
endif()
file(READ ${WORK_DIR}/build.ninja ninja)
foreach(target tavrin-app tavrin_app_core tavrin_app_support app_tests)
  string(FIND "${ninja}" "${target}" found)
  if(NOT found EQUAL -1)
    message(FATAL_ERROR "${target} is still built without Qt")
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})

file(GLOB app_headers RELATIVE ${SOURCE_DIR}/apps/tavrin-app ${SOURCE_DIR}/apps/tavrin-app/*.h)
file(GLOB_RECURSE others ${SOURCE_DIR}/src/*.h ${SOURCE_DIR}/src/*.cpp ${SOURCE_DIR}/apps/tavrin/*
     ${SOURCE_DIR}/apps/tavrin-share/* ${SOURCE_DIR}/bench/*.cpp ${SOURCE_DIR}/fuzz/*.cpp)
foreach(source ${others})
  file(STRINGS ${source} includes REGEX "^#include \"")
  foreach(header ${app_headers})
    if(includes MATCHES "#include \"${header}\"")
      message(FATAL_ERROR "${source} includes the app's ${header}")
    endif()
  endforeach()
endforeach()
message(STATUS "the project configures without the app, and nothing else includes it")
