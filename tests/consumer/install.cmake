# Installs the built tree into the scratch prefix that the consumer tests build against, and
# checks what an agent's packager would see: all headers under include/routingpolicy, and an
# installed rpolicy that runs on the installed libraries and answers as the built one does.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)

file(REMOVE_RECURSE ${PREFIX})
rp_run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

file(GLOB include_entries RELATIVE ${PREFIX}/${INCLUDEDIR} ${PREFIX}/${INCLUDEDIR}/*)
if(NOT include_entries STREQUAL "routingpolicy")
  message(FATAL_ERROR "${PREFIX}/${INCLUDEDIR} holds '${include_entries}', not only routingpolicy")
endif()
foreach(header Kel/Ptr.h Nx/IpGenPrefix.h RoutingPolicy/eval/Policy.h agent/PolicyAgent.h)
  if(NOT EXISTS ${PREFIX}/${INCLUDEDIR}/routingpolicy/${header})
    message(FATAL_ERROR "${header} is not installed under ${PREFIX}/${INCLUDEDIR}/routingpolicy")
  endif()
endforeach()

set(rpolicy ${PREFIX}/${BINDIR}/rpolicy)
rp_check_loads_from_prefix(${rpolicy})
set(args eval ${EXAMPLES_DIR}/edge.conf ${EXAMPLES_DIR}/edge-routes.txt --route-map EDGE-IN)
rp_run("installed rpolicy" ${rpolicy} ${args})
set(installed_out "${out}")
rp_run("built rpolicy" ${BUILT_RPOLICY} ${args})
if(NOT installed_out STREQUAL out OR out STREQUAL "")
  message(FATAL_ERROR "installed rpolicy printed:\n${installed_out}\nbuilt rpolicy printed:\n${out}")
endif()
