# Builds the upgrade library against a foreign boundary and upgrades that boundary's device with it.
include(${CMAKE_CURRENT_LIST_DIR}/steps.cmake)

install_component(VelmarRecords)

build_project(boundary ${CMAKE_CURRENT_LIST_DIR}/boundary)
run(${CMAKE_COMMAND} --install ${WORK}/boundary)

build_project(firmware ${SOURCE}
    -DVELMAR_DEVICE_BOUNDARY=TinyBoundary
    -DVELMAR_BUILD_PROGRAMS=OFF
    -DVELMAR_BUILD_TESTS=OFF)
run(${CMAKE_COMMAND} --install ${WORK}/firmware)

build_project(consumer ${CMAKE_CURRENT_LIST_DIR}/consumer)
run(${WORK}/consumer/consumer)
