# SPDX-License-Identifier: MIT
#
# The library: its sources, its public headers, and how it is installed.

set(KESTROVA_SOURCES
  base/text/base64.cpp
  base/process/childprocess.cpp
  base/log/console.cpp
  base/text/crc32.cpp
  base/io/descriptor.cpp
  base/io/file.cpp
  base/io/filelock.cpp
  base/log/hooks.cpp
  base/text/ipv4.cpp
  base/io/linereader.cpp
  base/io/mounttable.cpp
  base/log/log.cpp
  base/monotonictime.cpp
  base/process/interruptsignals.cpp
  base/process/launcher.cpp
  base/process/popen3.cpp
  base/text/scanner.cpp
  base/process/shellcommand.cpp
  base/process/sigpipeguard.cpp
  base/stream.cpp
  base/text/stringshared.cpp
  base/text/boundedtext.cpp
  base/process/tool.cpp
  System/BlockdevCfg.fmp.cpp
  System/KestrovaPOpen.cpp
  System/bootvarsmanager/binaryvalue.cpp
  System/bootvarsmanager/bootenvironment.cpp
  System/bootvarsmanager/bootvariables.cpp
  System/bootvarsmanager/environmentfiles.cpp
  System/bootvarsmanager/environmentimage.cpp
  System/bootvarsmanager/environmenttext.cpp
  System/bootvarsmanager/mountoptions.cpp
  System/bootvarsmanager/softwarepartition.cpp
  System/bootvarsmanager/sysBootEnvironmentFile.cpp
  System/bootvarsmanager/sysBootVarsManager.cpp
  System/drivemanager/driveidentity.cpp
  System/drivemanager/drivemanager.cpp
  System/drivemanager/dvrdrive.cpp
  System/drivemanager/failure.cpp
  System/drivemanager/failuretable.cpp
  System/drivemanager/filesystemsize.cpp
  System/drivemanager/harddrive.cpp
  System/drivemanager/mounts.cpp
  System/drivemanager/partition.cpp
  System/drivemanager/partitionformat.cpp
  System/drivemanager/signature.cpp
  System/drivemanager/superblock.cpp
  System/drivemanager/tools/partitiontable.cpp
  System/drivemanager/tools/tableresults.cpp
  System/drivemanager/tools/toolcommands.cpp
  System/drivemanager/tools/toolprogress.cpp
  System/protocols/http/failurenote.cpp
  System/protocols/http/hostlookup.cpp
  System/protocols/http/httpconnection.cpp
  System/protocols/http/httpreplyheader.cpp
  System/protocols/http/httpurl.cpp
  System/protocols/http/lookupthreads.cpp
  System/protocols/http/sysChainFetcher.cpp
  System/protocols/http/sysUrlFetcher.cpp
  System/resourcelock/lockfile.cpp
  System/resourcelock/lockrecord.cpp
  System/sysResourceLock.cpp
  System/sysSuperUserUtils.cpp
  System/system.cpp
)

set(KESTROVA_PUBLIC_HEADERS
  base/export.h
  base/outputlevel.h
  base/stream.h
  base/threadsafety.h
  base/vector.h
  System/BlockdevCfg.fmp.h
  System/KestrovaPOpen.h
  System/bootvarsmanager/sysBootEnvironmentFile.h
  System/bootvarsmanager/sysBootVarsManager.h
  System/drivemanager/drivemanager.h
  System/drivemanager/dvrdrive.h
  System/drivemanager/harddrive.h
  System/drivemanager/partition.h
  System/protocols/http/httpconnection.h
  System/protocols/http/httpfailure.h
  System/protocols/http/httpreplyheader.h
  System/protocols/http/httpurl.h
  System/protocols/http/sysChainFetcher.h
  System/protocols/http/sysUrlFetcher.h
  System/sysResourceLock.h
  System/sysSuperUserUtils.h
  System/system.h
)

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Compiled once, for the shared library and for the tests' static one, which also reaches what is
# not exported. An application may compile its own files as one; here each has names of its own.
add_library(kestrova-objects OBJECT ${KESTROVA_SOURCES})
set_target_properties(kestrova-objects PROPERTIES
  UNITY_BUILD OFF
  POSITION_INDEPENDENT_CODE ON
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
# A released library is made small: memory is dearer in a box than what it does between two system
# calls. The checksum alone runs over bytes for long.
target_compile_options(kestrova-objects PRIVATE -ffunction-sections -fdata-sections
  $<$<CONFIG:Release>:-Os>)
# What a child runs in its caller's memory: a sanitizer would record its stack frames as the
# caller's.
set_source_files_properties(base/process/childprocess.cpp PROPERTIES
  COMPILE_OPTIONS -fno-sanitize=all)
set_source_files_properties(base/text/crc32.cpp PROPERTIES
  COMPILE_OPTIONS $<$<CONFIG:Release>:-O2>)
target_link_libraries(kestrova-objects PRIVATE kestrova-compile Threads::Threads)

add_library(kestrova-system SHARED $<TARGET_OBJECTS:kestrova-objects>)
add_library(KestrovaSystem::kestrova-system ALIAS kestrova-system)
set_target_properties(kestrova-system PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/exports.map)
target_compile_features(kestrova-system PUBLIC cxx_std_17)
target_include_directories(kestrova-system PUBLIC
  $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kestrova>)
# nodelete: a detached worker may still run when an application closes the library.
target_link_options(kestrova-system PRIVATE
  -Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/cmake/exports.map
  -Wl,--no-undefined-version -Wl,-z,relro -Wl,-z,now -Wl,-z,nodelete -Wl,--as-needed -Wl,--gc-sections)
target_link_libraries(kestrova-system PRIVATE Threads::Threads)

add_library(kestrova-static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:kestrova-objects>)
target_link_libraries(kestrova-static PUBLIC kestrova-compile Threads::Threads)

# Three components, to be packaged apart: runtime, development and tools.
install(TARGETS kestrova-system EXPORT KestrovaSystemTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT development)
foreach(header IN LISTS KESTROVA_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kestrova/${folder}
    COMPONENT development)
endforeach()

set(KESTROVA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KestrovaSystem)
install(EXPORT KestrovaSystemTargets NAMESPACE KestrovaSystem:: DESTINATION ${KESTROVA_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(cmake/KestrovaSystemConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/KestrovaSystemConfig.cmake INSTALL_DESTINATION ${KESTROVA_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KestrovaSystemConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/KestrovaSystemConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KestrovaSystemConfigVersion.cmake
  DESTINATION ${KESTROVA_CMAKE_DIR} COMPONENT development)
# The package file finds its prefix from its own place, so that an installed tree can be moved.
file(RELATIVE_PATH KESTROVA_PREFIX_FROM_PC
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH KESTROVA_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KESTROVA_INCLUDEDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/kestrova-system.pc.in kestrova-system.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kestrova-system.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# Manual pages: section 1 is of the command, the others are of the library. Those of section 3 are
# made from the comments of the public headers, if the programs for it are there.
if(KESTROVA_MANUAL)
  find_program(KESTROVA_DOXYGEN doxygen)
  find_program(KESTROVA_PYTHON python3)
  if(KESTROVA_DOXYGEN AND KESTROVA_PYTHON)
    set(KESTROVA_PAGES ${CMAKE_CURRENT_BINARY_DIR}/man3)
    file(GLOB KESTROVA_EXAMPLE_SOURCES CONFIGURE_DEPENDS examples/*.cpp)
    add_custom_command(OUTPUT ${KESTROVA_PAGES}.stamp
      COMMAND ${KESTROVA_PYTHON} script/manual.py --doxygen ${KESTROVA_DOXYGEN} ${KESTROVA_PAGES}
        ${KESTROVA_PUBLIC_HEADERS}
      COMMAND ${CMAKE_COMMAND} -E touch ${KESTROVA_PAGES}.stamp
      DEPENDS ${KESTROVA_PUBLIC_HEADERS} ${KESTROVA_EXAMPLE_SOURCES} script/manual.py docs/Doxyfile
        CHANGELOG.md
      WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
      COMMENT "Making the manual pages of section 3" VERBATIM)
    add_custom_target(kestrova-manual ALL DEPENDS ${KESTROVA_PAGES}.stamp)
    install(DIRECTORY ${KESTROVA_PAGES}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3
      COMPONENT development)
  else()
    message(STATUS "No manual pages of section 3: they need doxygen and python3")
  endif()
endif()
function(kestrova_install_pages section component)
  file(GLOB pages CONFIGURE_DEPENDS man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
kestrova_install_pages(7 development)
if(KESTROVA_APP)
  kestrova_install_pages(1 tools)
  file(GLOB KESTROVA_COMPLETION CONFIGURE_DEPENDS completion/kestrova.bash)
  if(KESTROVA_COMPLETION)
    install(FILES ${KESTROVA_COMPLETION} RENAME kestrova COMPONENT tools
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  endif()
endif()
