# Configures, builds and runs the consumer the way an embedding agent would: through
# find_package(RoutingPolicy CONFIG) on the scratch prefix.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
rp_run("consumer configure"
       ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}
       -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX}
       -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
       "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}")
rp_run("consumer build" ${CMAKE_COMMAND} --build ${WORK_DIR})
rp_run_consumer(${WORK_DIR}/consumer)
rp_check_loads_from_prefix(${WORK_DIR}/consumer)
