# Builds the consumer with a plain compiler command whose flags come from pkg-config alone, as an
# agent with its own build system would, runs it, and checks that pkg-config hands out the same
# include directory and compile definitions as the CMake package: a definition missing on one
# side compiles our headers differently from the libraries.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
set(static "")
if(NOT LIBRARY_TYPE STREQUAL "SHARED_LIBRARY")
  set(static --static)
endif()
rp_run("pkg-config --cflags" ${PKG_CONFIG} --cflags routingpolicy)
string(STRIP "${out}" cflags)
rp_run("pkg-config --libs" ${PKG_CONFIG} ${static} --libs routingpolicy)
string(STRIP "${out}" libs)
rp_run("pkg-config --variable=libdir" ${PKG_CONFIG} --variable=libdir routingpolicy)
string(STRIP "${out}" libdir)
separate_arguments(cflags UNIX_COMMAND "${cflags}")
separate_arguments(libs UNIX_COMMAND "${libs}")

# What the CMake package gives a consumer, less what fmt's, Boost's and the thread library's own
# packages add (pkg-config gets those from their .pc files, or they are no-ops on this system).
rp_run("usage configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR}/usage -B ${WORK_DIR}/usage
       -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX})
include(${WORK_DIR}/usage/usage.cmake)
set(cmake_defs ${all_COMPILE_DEFINITIONS})
if(deps_COMPILE_DEFINITIONS)
  list(REMOVE_ITEM cmake_defs ${deps_COMPILE_DEFINITIONS})
endif()
set(cmake_incs "")
foreach(dir IN LISTS all_INCLUDE_DIRECTORIES)
  if(NOT dir IN_LIST deps_INCLUDE_DIRECTORIES)
    file(REAL_PATH "${dir}" dir)
    list(APPEND cmake_incs ${dir})
  endif()
endforeach()

# Include directories of other packages (fmt's) are theirs to agree on.
file(REAL_PATH ${PREFIX} real_prefix)
set(pc_defs "")
set(pc_incs "")
foreach(flag IN LISTS cflags)
  if(flag MATCHES "^-D(.*)")
    list(APPEND pc_defs ${CMAKE_MATCH_1})
  elseif(flag MATCHES "^-I(.*)")
    file(REAL_PATH "${CMAKE_MATCH_1}" dir)
    string(FIND "${dir}/" "${real_prefix}/" at)
    if(at EQUAL 0)
      list(APPEND pc_incs ${dir})
    endif()
  endif()
endforeach()
foreach(kind defs incs)
  list(REMOVE_DUPLICATES cmake_${kind})
  list(SORT cmake_${kind})
  list(SORT pc_${kind})
  if(NOT cmake_${kind} STREQUAL pc_${kind})
    message(FATAL_ERROR "pkg-config ${kind} '${pc_${kind}}' differ from the CMake package's "
                        "'${cmake_${kind}}' (cflags: ${cflags})")
  endif()
endforeach()

separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS}")
separate_arguments(linker_flags UNIX_COMMAND "${LINKER_FLAGS}")
rp_run("consumer build"
       ${CXX} ${cxx_flags} -std=c++20 -O1 ${cflags} ${SOURCE_DIR}/main.cpp
       -o ${WORK_DIR}/consumer ${linker_flags} ${libs} -Wl,-rpath,${libdir})
rp_run_consumer(${WORK_DIR}/consumer)
rp_check_loads_from_prefix(${WORK_DIR}/consumer)
