# install_check.cmake - installs the build into a scratch prefix and builds examples/hello.c
# against it twice: with pkg-config, and as a CMake project using find_package(zyrdc).
# Run by CTest: cmake -DBUILD=... -DSOURCE=... -DCC=... -DFLAGS=... [-DTOOLCHAIN=...]
#                    [-DEMULATOR=...] -P   (EMULATOR: the command that runs the build's programs)
set(prefix ${BUILD}/install-check)
file(REMOVE_RECURSE ${prefix} ${BUILD}/install-consumer)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
                OUTPUT_QUIET RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()
file(GLOB_RECURSE pc ${prefix}/*/zyrdc.pc)
get_filename_component(pcdir "${pc}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
set(ENV{PKG_CONFIG_LIBDIR} ${pcdir})
execute_process(COMMAND pkg-config --cflags --libs zyrdc OUTPUT_VARIABLE pcflags
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not find zyrdc.pc")
endif()
separate_arguments(pcflags UNIX_COMMAND "${pcflags}")
separate_arguments(flags UNIX_COMMAND "${FLAGS}")
execute_process(COMMAND ${CC} ${flags} -std=c99 -pedantic -Wall -Werror ${SOURCE}/examples/hello.c
                        ${pcflags} -o ${BUILD}/install-check/hello-pc RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "examples/hello.c does not build with pkg-config")
endif()
string(REGEX MATCH "-L[^ ;]+" libflag "${pcflags}")
string(SUBSTRING "${libflag}" 2 -1 libdir)
set(ENV{LD_LIBRARY_PATH} ${libdir})
execute_process(COMMAND ${EMULATOR} ${BUILD}/install-check/hello-pc ${SOURCE}/examples/hello.c
                OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR NOT out MATCHES "crc32 [0-9a-f]+  adler32 [0-9a-f]+")
  message(FATAL_ERROR "hello (pkg-config) failed: ${out}")
endif()

# Every C example builds against the installed package and runs (on its own source).
foreach(example lz4_block gzip_member bzip2_stages bzip2_stream zfp_volume)
  execute_process(COMMAND ${CC} ${flags} -std=c99 -pedantic -Wall -Werror ${SOURCE}/examples/${example}.c
                          ${pcflags} -lm -o ${BUILD}/install-check/${example} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "examples/${example}.c does not build with pkg-config")
  endif()
  execute_process(COMMAND ${EMULATOR} ${BUILD}/install-check/${example} ${SOURCE}/examples/${example}.c
                  OUTPUT_VARIABLE example_out RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "examples/${example} failed: ${example_out}")
  endif()
endforeach()

set(tc "")
if(TOOLCHAIN)
  set(tc -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/examples/consumer -B ${BUILD}/install-consumer
                        -DCMAKE_PREFIX_PATH=${prefix} ${tc} OUTPUT_QUIET RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "find_package(zyrdc) consumer does not configure")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD}/install-consumer OUTPUT_QUIET RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "find_package(zyrdc) consumer does not build")
endif()
execute_process(COMMAND ${EMULATOR} ${BUILD}/install-consumer/hello ${SOURCE}/examples/hello.c
                OUTPUT_VARIABLE out2 RESULT_VARIABLE rc)
if(NOT rc EQUAL 0 OR NOT out2 STREQUAL out)
  message(FATAL_ERROR "hello (find_package) failed: ${out2}")
endif()
# The installed program finds the installed library by its own run path.
if(EXISTS ${prefix}/bin/zyrdc)
  unset(ENV{LD_LIBRARY_PATH})
  execute_process(COMMAND ${EMULATOR} ${prefix}/bin/zyrdc --version OUTPUT_VARIABLE version
                  RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0 OR NOT version MATCHES "^zyrDC ")
    message(FATAL_ERROR "the installed zyrdc does not run from its prefix: ${version}")
  endif()
endif()
message(STATUS "installed library works through pkg-config and find_package: ${out}")
