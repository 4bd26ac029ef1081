# Installs the built library into a scratch prefix, then configures, builds
# and runs a consumer project that finds it with find_package(kivo CONFIG),
# and compiles the same program with the flags pkg-config gives.
file(REMOVE_RECURSE ${KIVO_SCRATCH})
set(prefix ${KIVO_SCRATCH}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${KIVO_BUILD_DIR} --prefix ${prefix}
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed")
endif()

set(flags "")
if(KIVO_SANITIZE)
  set(flags "-fsanitize=address,undefined")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${KIVO_CONSUMER_DIR} -B ${KIVO_SCRATCH}/build
                        -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${KIVO_CXX_COMPILER}
                        "-DCMAKE_CXX_FLAGS=${flags}"
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${KIVO_SCRATCH}/build RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND ${KIVO_SCRATCH}/build/kivo_consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer run failed: ${out}")
endif()
message(STATUS "consumer: ${out}")

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig:${prefix}/lib64/pkgconfig)
  execute_process(COMMAND ${PKG_CONFIG} --cflags --libs kivo RESULT_VARIABLE rc
                  OUTPUT_VARIABLE pcflags OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pkg-config does not find kivo")
  endif()
  separate_arguments(pcflags UNIX_COMMAND "${pcflags}")
  execute_process(COMMAND ${KIVO_CXX_COMPILER} ${flags} ${KIVO_CONSUMER_DIR}/main.cpp ${pcflags}
                          -o ${KIVO_SCRATCH}/pc_consumer RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pkg-config consumer build failed")
  endif()
endif()
