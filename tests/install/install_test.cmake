# Installs the build tree into a scratch prefix, then builds and runs clients against it: a
# small one through the CMake package and through pkg-config, and kmeta, configured out of
# tree from its sources with nothing but the package. Run with cmake -P and
#   BUILD_DIR   the build tree to install        WORK_DIR  scratch directory (emptied first)
#   CLIENT_DIR  the client project               LIBDIR    the install's library directory
#   KMETA_DIR   kmeta's sources                  KMETA     the tree's own kmeta
#   EXAMPLE     a document both kmeta write back
#   CXX         the compiler                     BUILD_TYPE
#   CXX_FLAGS, LINK_FLAGS  the tree's own options (sanitizers included), for the clients too
cmake_minimum_required(VERSION 3.18)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "failed (${result}): ${command}\n${output}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The CMake package.
run(${CMAKE_COMMAND} -S ${CLIENT_DIR} -B ${WORK_DIR}/client
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/client)
run(${WORK_DIR}/client/kpl_client)

# kmeta, the library's first client, from the package alone.
run(${CMAKE_COMMAND} -S ${KMETA_DIR} -B ${WORK_DIR}/kmeta
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/kmeta)
execute_process(COMMAND ${WORK_DIR}/kmeta/kmeta roundtrip ${EXAMPLE} RESULT_VARIABLE result
                OUTPUT_VARIABLE written ERROR_VARIABLE error)
execute_process(COMMAND ${KMETA} roundtrip ${EXAMPLE} OUTPUT_VARIABLE expected)
if(NOT result EQUAL 0 OR NOT written STREQUAL expected)
  message(FATAL_ERROR "kmeta built from the package wrote ${EXAMPLE} otherwise (${result}): "
                      "${error}")
endif()

# pkg-config, with nothing but the prefix's pkgconfig directory to go on.
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs kpl-core RESULT_VARIABLE result
                OUTPUT_VARIABLE flags ERROR_VARIABLE error OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "pkg-config --cflags --libs kpl-core failed: ${error}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS} ${LINK_FLAGS}")
set(library_dir "")
foreach(flag IN LISTS flags)
  if(flag MATCHES "^-L(.+)")
    set(library_dir ${CMAKE_MATCH_1})
  endif()
endforeach()
if(NOT EXISTS ${library_dir}/libkpl_core.so)
  message(FATAL_ERROR "pkg-config names no directory holding libkpl_core.so: ${flags}")
endif()
run(${CXX} ${cxx_flags} ${CLIENT_DIR}/main.cc ${flags} -Wl,-rpath,${library_dir}
    -o ${WORK_DIR}/pkg_config_client)
run(${WORK_DIR}/pkg_config_client)
