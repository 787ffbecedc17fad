# How the i386 build runs its own programs (test discovery, ctest, helpers
# that tests start). Some kernels execute 32-bit programs and some do not, and
# the same tree must pass on both. So: unless an emulator is named, probe once
# whether a tiny -m32 program runs here; if it does not, run the i386 programs
# under qemu-user ("qemu-i386 -L /", the Debian package qemu-user), which the
# Makefile installs. KEEL_I386_EMULATOR=qemu-i386 forces the emulator on a
# machine that would not need it, so both ways can be tried on one machine.
set(KEEL_I386_EMULATOR "" CACHE STRING
  "Program that runs the i386 build's programs (empty: probe whether the kernel runs them)")

if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  set(keel_emulator "")
  if(KEEL_I386_EMULATOR)
    set(keel_emulator ${KEEL_I386_EMULATOR})
  else()
    set(keel_probe_source ${CMAKE_CURRENT_BINARY_DIR}/keel_m32_probe.c)
    file(WRITE ${keel_probe_source} "int main(void) { return sizeof(void*) == 4 ? 0 : 1; }\n")
    try_run(keel_probe_run keel_probe_compiled ${CMAKE_CURRENT_BINARY_DIR}/keel_m32_probe
      ${keel_probe_source} COMPILE_DEFINITIONS -m32 LINK_OPTIONS -m32
      COMPILE_OUTPUT_VARIABLE keel_probe_log)
    if(NOT keel_probe_compiled)
      message(FATAL_ERROR "cannot build a -m32 program (is g++-multilib installed?):\n${keel_probe_log}")
    endif()
    if(NOT keel_probe_run EQUAL 0)
      set(keel_emulator qemu-i386)
    endif()
  endif()
  if(keel_emulator)
    find_program(KEEL_QEMU_I386 ${keel_emulator})
    if(NOT KEEL_QEMU_I386)
      message(FATAL_ERROR "this kernel does not run i386 programs and ${keel_emulator} is missing: "
        "install Debian's qemu-user (make check does)")
    endif()
    # -L / : the i386 libraries of the multilib install stand at their usual
    # places in the host's root.
    set(CMAKE_CROSSCOMPILING_EMULATOR "${KEEL_QEMU_I386};-L;/")
  endif()
endif()

if(CMAKE_CROSSCOMPILING_EMULATOR)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " keel_emulator_line)
  message(STATUS "i386 tests run under ${keel_emulator_line}")
else()
  message(STATUS "i386 tests run natively")
endif()
