# Shared by the consumer scripts. Each runs with -P and gets PREFIX (the scratch install),
# LIBDIR, INCLUDEDIR, BINDIR (as installed), LIBRARY_TYPE (rp_agent's target type) and
# SOVERSION_EXPECTED.
cmake_minimum_required(VERSION 3.25)

# A library path set by the caller would hide whether the installed RUNPATHs work.
unset(ENV{LD_LIBRARY_PATH})

# Runs a command; on failure stops with what it printed. Leaves the output in `out`.
macro(rp_run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
endmacro()

# In a shared build, `binary` must name the agent library by its versioned SONAME, and the
# dynamic loader must take all three of our libraries from the scratch prefix: not from the
# build tree that produced them, and not from anywhere else on the system.
function(rp_check_loads_from_prefix binary)
  if(NOT LIBRARY_TYPE STREQUAL "SHARED_LIBRARY")
    return()
  endif()
  rp_run("readelf -d ${binary}" readelf -d ${binary})
  set(agent_soname "librpagent.so.${SOVERSION_EXPECTED}")
  string(REPLACE "." "\\." agent_soname_re "${agent_soname}")
  if(NOT out MATCHES "\\(NEEDED\\)[^\n]*\\[${agent_soname_re}\\]")
    message(FATAL_ERROR "${binary} does not need ${agent_soname}:\n${out}")
  endif()
  rp_run("ldd ${binary}" ldd ${binary})
  set(ldd_out "${out}")
  foreach(lib rpagent rppolicy rpplatform)
    set(soname "lib${lib}.so.${SOVERSION_EXPECTED}")
    string(REPLACE "." "\\." soname_re "${soname}")
    if(NOT ldd_out MATCHES "${soname_re} => ([^ \n]+) \\(0x")
      message(FATAL_ERROR "${binary} does not load ${soname}:\n${ldd_out}")
    endif()
    file(REAL_PATH "${CMAKE_MATCH_1}" loaded)
    file(REAL_PATH "${PREFIX}/${LIBDIR}/${soname}" installed)
    if(NOT loaded STREQUAL installed)
      message(FATAL_ERROR "${binary} loads ${soname} from ${loaded}, not from ${installed}")
    endif()
  endforeach()
endfunction()

# The consumer program prints this last, after its own assertions held.
function(rp_run_consumer binary)
  rp_run("${binary}" ${binary})
  if(NOT out MATCHES "consumer ok\n$")
    message(FATAL_ERROR "${binary} printed:\n${out}")
  endif()
endfunction()
