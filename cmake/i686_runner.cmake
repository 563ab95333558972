# i686_runner.cmake - decides once, at configure time, how this build's i686 programs run.
#
# Many x86-64 kernels are built without 32-bit support: there every i686 program fails with
# "Exec format error". The i686 build is the primary target and must stay fully tested, so on
# such a kernel its programs (tests, test discovery, the tool, the install checks, the demo)
# run under user-mode emulation instead. The decision comes from a real probe: a tiny i686
# program is built and run. Where it runs, nothing is emulated.
#
#   -DZYRDC_I686_EMULATOR=qemu-i386   force the emulated path (any emulator program)
#   -DZYRDC_I686_EMULATOR=OFF         force the native path, whatever the probe says
#
# Sets CMAKE_CROSSCOMPILING_EMULATOR (honoured by add_test, CTest and test discovery) and
# the cache entry ZYRDC_I686_EMULATED, and writes ${PROJECT_BINARY_DIR}/run, a launcher that
# runs a program of this build the way its tests run it (the scripts use it). The x86-64
# builds get the same launcher, which runs programs as they are.

set(ZYRDC_I686_EMULATOR "" CACHE STRING
    "Run i686 programs under this user-mode emulator; OFF for native; empty to probe")

set(zyrdc_emulator_cmd "")
if(NOT ZYRDC_I686)
  # nothing to decide: programs of the host's own width
elseif(ZYRDC_I686_EMULATOR STREQUAL "")
  if(NOT DEFINED ZYRDC_I686_RUNS_NATIVELY)
    set(probe_dir ${PROJECT_BINARY_DIR}/CMakeFiles/i686-probe)
    file(WRITE ${probe_dir}/probe.c "int main(void) { return 0; }\n")
    try_run(probe_run probe_compiled ${probe_dir} ${probe_dir}/probe.c)
    if(NOT probe_compiled)
      message(FATAL_ERROR "zyrdc: the i686 compiler cannot build a program (run scripts/setup.sh)")
    endif()
    if(probe_run EQUAL 0)
      set(ZYRDC_I686_RUNS_NATIVELY ON CACHE INTERNAL "the kernel runs i686 programs")
    else()
      set(ZYRDC_I686_RUNS_NATIVELY OFF CACHE INTERNAL "the kernel runs i686 programs")
    endif()
  endif()
  if(NOT ZYRDC_I686_RUNS_NATIVELY)
    find_program(ZYRDC_QEMU_I386 qemu-i386)
    if(NOT ZYRDC_QEMU_I386)
      message(WARNING "zyrdc: this kernel runs no i686 programs and qemu-i386 is missing: "
                      "the build works, its tests will not run (scripts/setup.sh installs qemu-user)")
    else()
      set(zyrdc_emulator_cmd ${ZYRDC_QEMU_I386})
    endif()
  endif()
elseif(NOT ZYRDC_I686_EMULATOR STREQUAL "OFF")
  find_program(ZYRDC_FORCED_EMULATOR ${ZYRDC_I686_EMULATOR} REQUIRED)
  set(zyrdc_emulator_cmd ${ZYRDC_FORCED_EMULATOR})
endif()

if(zyrdc_emulator_cmd)
  # -L /: the host's own i386 loader and libraries are the guest's root.
  set(CMAKE_CROSSCOMPILING_EMULATOR ${zyrdc_emulator_cmd} -L /)
  set(ZYRDC_I686_EMULATED ON CACHE INTERNAL "i686 programs run under emulation")
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " zyrdc_emulator_line)
  message(STATUS "zyrdc: i686 programs run under emulation: ${zyrdc_emulator_line}")
  set(zyrdc_launch "exec ${zyrdc_emulator_line} \"$@\"")
else()
  unset(CMAKE_CROSSCOMPILING_EMULATOR)
  set(ZYRDC_I686_EMULATED OFF CACHE INTERNAL "i686 programs run under emulation")
  if(ZYRDC_I686)
    message(STATUS "zyrdc: i686 programs run natively")
  endif()
  set(zyrdc_launch "exec \"$@\"")
endif()
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/run CONTENT
"#!/bin/sh\n# Runs a program of this build the way its tests run it.\n${zyrdc_launch}\n"
  @ONLY)
file(CHMOD ${PROJECT_BINARY_DIR}/run PERMISSIONS
     OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
