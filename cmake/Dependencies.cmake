# These libraries come with pkg-config files only.
find_package(PkgConfig REQUIRED)

function(zav_find_module target module package)
  pkg_check_modules(${target} IMPORTED_TARGET GLOBAL ${module})
  if(NOT ${target}_FOUND)
    message(FATAL_ERROR
      "${module} is missing: install ${package}, or run scripts/install-dependencies${ARGN}")
  endif()
endfunction()

zav_find_module(sbc sbc libsbc-dev)
zav_find_module(opus opus libopus-dev)
# Standalone Asio has no package file of its own: headers only.
find_path(zav_asio_headers asio/thread_pool.hpp)
if(NOT zav_asio_headers)
  message(FATAL_ERROR "Asio is missing: install libasio-dev, or run scripts/install-dependencies")
endif()
add_library(zav_asio INTERFACE)
target_include_directories(zav_asio SYSTEM INTERFACE ${zav_asio_headers})
target_compile_definitions(zav_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED
  # Our copy has names of its own. A program that links the static library may use another Asio.
  asio=zav_asio asio_detail_posix_thread_function=zav_asio_posix_thread_function
  asio_signal_handler=zav_asio_signal_handler)
if(ZAV_SANITIZE MATCHES thread)
  # ThreadSanitizer does not know fences. What Asio orders with them, its locks order too.
  target_compile_definitions(zav_asio INTERFACE ASIO_DISABLE_FENCED_BLOCK)
endif()
find_package(Threads REQUIRED)

zav_find_module(sndfile sndfile libsndfile1-dev)

if(ZAV_BUILD_FFMPEG)
  foreach(module avformat avcodec swresample avutil)
    zav_find_module(${module} lib${module} lib${module}-dev
      ", or configure with -DZAV_BUILD_FFMPEG=OFF to do without most compressed audio")
  endforeach()
endif()
if(ZAV_BUILD_PULSE)
  zav_find_module(pulse libpulse libpulse-dev
    ", or configure with -DZAV_BUILD_PULSE=OFF to do without the sound server")
endif()
