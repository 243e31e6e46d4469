# System libraries, all from Debian packages installed by scripts/install-deps.sh.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(TBB REQUIRED)
find_package(ZLIB REQUIRED)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(TIFF REQUIRED)
pkg_check_modules(HWY REQUIRED IMPORTED_TARGET libhwy)
pkg_check_modules(LCMS2 REQUIRED IMPORTED_TARGET lcms2)
pkg_check_modules(HEIF REQUIRED IMPORTED_TARGET libheif)
pkg_check_modules(LIBRAW REQUIRED IMPORTED_TARGET libraw_r)
pkg_check_modules(EXIV2 REQUIRED IMPORTED_TARGET exiv2)
pkg_check_modules(DLIB REQUIRED IMPORTED_TARGET dlib-1)
pkg_check_modules(LIBARCHIVE REQUIRED IMPORTED_TARGET libarchive)
# The X connection the application reads the monitor profile (_ICC_PROFILE) through.
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb)

# OpenCV from Debian's split packages (core, imgproc, dnn): the full
# libopencv-dev that find_package(OpenCV) needs pulls in hundreds of packages.
find_path(OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
foreach(module core imgproc dnn)
  find_library(OPENCV_${module}_LIBRARY opencv_${module} REQUIRED)
  add_library(OpenCV::${module} SHARED IMPORTED)
  set_target_properties(OpenCV::${module} PROPERTIES
    IMPORTED_LOCATION ${OPENCV_${module}_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${OPENCV_INCLUDE_DIR})
endforeach()

find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets DBus Test)
if(VG_TESTS)
  find_package(GTest REQUIRED)
endif()
if(VG_BENCH)
  find_package(benchmark REQUIRED)
endif()
