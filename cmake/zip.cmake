# The library that writes zip packages: the target `qzm_zip`, and QZM_ZIP_SOURCE, the source in
# common/ that goes with it. QZM_ZIP chooses; "auto" takes miniz where it is found, and otherwise
# minizip. QZM_ZIP_OTHER, QZM_ZIP_OTHER_SOURCE and the target `qzm_zip_other` are the one that was
# not chosen, for its tests; empty when it is not found.

set(QZM_ZIP auto CACHE STRING "Library that writes zip packages: auto, miniz or minizip")
set_property(CACHE QZM_ZIP PROPERTY STRINGS auto miniz minizip)

# miniz, version 3 or later, brings a configuration for CMake; where that is not installed its header
# and library will do.
add_library(qzm_zip_miniz INTERFACE)
find_package(miniz 3 CONFIG QUIET)
if(TARGET miniz::miniz)
  target_link_libraries(qzm_zip_miniz INTERFACE miniz::miniz)
  set(QZM_HAVE_MINIZ TRUE)
else()
  find_path(QZM_MINIZ_INCLUDE miniz.h PATH_SUFFIXES miniz)
  find_library(QZM_MINIZ_LIBRARY NAMES libminiz.a miniz)
  set(declared)
  if(QZM_MINIZ_INCLUDE AND QZM_MINIZ_LIBRARY)
    file(GLOB headers ${QZM_MINIZ_INCLUDE}/miniz.h ${QZM_MINIZ_INCLUDE}/miniz_zip.h)
    foreach(header IN LISTS headers)
      file(STRINGS ${header} found REGEX mz_zip_writer_add_read_buf_callback) # since version 3
      string(APPEND declared "${found}")
    endforeach()
  endif()
  if(declared)
    target_include_directories(qzm_zip_miniz SYSTEM INTERFACE ${QZM_MINIZ_INCLUDE})
    target_link_libraries(qzm_zip_miniz INTERFACE ${QZM_MINIZ_LIBRARY})
    set(QZM_HAVE_MINIZ TRUE)
  endif()
endif()

# The static libraries also where programs are linked dynamically: nothing to be loaded at start-up.
add_library(qzm_zip_minizip INTERFACE)
find_path(QZM_MINIZIP_INCLUDE minizip/zip.h)
find_library(QZM_MINIZIP_LIBRARY NAMES libminizip.a minizip)
find_library(QZM_ZLIB_LIBRARY NAMES libz.a z)
if(QZM_MINIZIP_INCLUDE AND QZM_MINIZIP_LIBRARY AND QZM_ZLIB_LIBRARY)
  target_include_directories(qzm_zip_minizip SYSTEM INTERFACE ${QZM_MINIZIP_INCLUDE})
  target_link_libraries(qzm_zip_minizip INTERFACE ${QZM_MINIZIP_LIBRARY} ${QZM_ZLIB_LIBRARY})
  set(QZM_HAVE_MINIZIP TRUE)
endif()

if(NOT QZM_ZIP STREQUAL "auto")
  set(chosen ${QZM_ZIP})
elseif(QZM_HAVE_MINIZ)
  set(chosen miniz)
else()
  set(chosen minizip)
endif()
set(other minizip)
if(chosen STREQUAL "minizip")
  set(other miniz)
elseif(NOT chosen STREQUAL "miniz")
  message(FATAL_ERROR "QZM_ZIP is \"${QZM_ZIP}\"; it must be auto, miniz or minizip")
endif()
string(TOUPPER ${chosen} chosen_name)
string(TOUPPER ${other} other_name)
if(NOT QZM_HAVE_${chosen_name})
  message(FATAL_ERROR "${chosen} is not found; zip packages need miniz or minizip"
    " (Debian: libminizip-dev and zlib1g-dev)")
endif()
message(STATUS "Zip packages: ${chosen}")

add_library(qzm_zip ALIAS qzm_zip_${chosen})
set(QZM_ZIP_SOURCE package_zip_${chosen}.cpp)
set(QZM_ZIP_OTHER ${other})
set(QZM_ZIP_OTHER_SOURCE)
if(QZM_HAVE_${other_name})
  add_library(qzm_zip_other ALIAS qzm_zip_${other})
  set(QZM_ZIP_OTHER_SOURCE package_zip_${other}.cpp)
endif()
