# 32-bit x86 Linux (i686) with Debian's multilib compilers (g++-multilib): the same code as the
# 32-bit Windows program, with 32-bit pointers, size_t and long, built and tested on Linux.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_EXE_LINKER_FLAGS_INIT -m32)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)

# Some kernels do not run 32-bit programs (IA-32 emulation switched off: execve answers "Exec
# format error"). There Debian's qemu-i386 (qemu-user) runs them: ctest starts every test program
# through it, and the process tests put it in front of the programs they start.
get_property(in_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT in_try_compile AND NOT DEFINED VELMORA_I386_RUNS_NATIVELY)
  set(probe_dir ${CMAKE_BINARY_DIR}/CMakeFiles/i386-probe)
  file(WRITE ${probe_dir}/probe.c "int main(void) { return 0; }\n")
  execute_process(COMMAND gcc -m32 ${probe_dir}/probe.c -o ${probe_dir}/probe
                  RESULT_VARIABLE built OUTPUT_QUIET ERROR_QUIET)
  if(NOT built EQUAL 0)
    message(FATAL_ERROR "gcc -m32 cannot link a program: install g++-multilib")
  endif()
  execute_process(COMMAND ${probe_dir}/probe RESULT_VARIABLE ran OUTPUT_QUIET ERROR_QUIET)
  if(ran EQUAL 0)
    set(VELMORA_I386_RUNS_NATIVELY ON CACHE BOOL "The kernel runs 32-bit x86 programs")
  else()
    set(VELMORA_I386_RUNS_NATIVELY OFF CACHE BOOL "The kernel runs 32-bit x86 programs")
  endif()
endif()
if(NOT in_try_compile AND NOT VELMORA_I386_RUNS_NATIVELY)
  find_program(VELMORA_QEMU_I386 qemu-i386 NO_CACHE)
  if(NOT VELMORA_QEMU_I386)
    message(FATAL_ERROR "This kernel does not run 32-bit programs and qemu-i386 is missing: "
                        "install qemu-user")
  endif()
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VELMORA_QEMU_I386})
endif()
