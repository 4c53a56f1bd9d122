#include "jpeg.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <jpeglib.h>

namespace camrelay::unit {

namespace {

// libjpeg reports a fatal error by calling this; the default one ends the
// process.
[[noreturn]] void Fail(j_common_ptr info) {
  char message[JMSG_LENGTH_MAX];
  (*info->err->format_message)(info, message);
  throw std::runtime_error(std::string("JPEG encoder: ") + message);
}

}  // namespace

std::string EncodeJpeg(const Picture& picture, int quality) {
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);
  errors.error_exit = Fail;
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  std::string bytes;
  try {
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, &buffer, &size);
    info.image_width = static_cast<JDIMENSION>(picture.width);
    info.image_height = static_cast<JDIMENSION>(picture.height);
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
      JSAMPROW row = const_cast<JSAMPROW>(&picture.rgb[info.next_scanline * picture.width * 3u]);
      jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    bytes.assign(reinterpret_cast<const char*>(buffer), size);
  } catch (...) {
    jpeg_destroy_compress(&info);
    std::free(buffer);
    throw;
  }
  jpeg_destroy_compress(&info);
  std::free(buffer);
  return bytes;
}

}  // namespace camrelay::unit
