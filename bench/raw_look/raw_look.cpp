// vg_raw_look: how our default RAW development compares with the camera's
// own rendering of the same shot.
//
//   vg_raw_look [--decoder ID] [--pairs DIR] RAW...
//
// For each file with an embedded camera preview (LibRaw's thumbnail), the
// preview and our development with the default RAW settings (or the decoder
// version ID) reduced to the preview's long side are measured the way
// automatic adjustment measures a picture: sRGB-encoded luminance
// L = 0.2126 R + 0.7152 G + 0.0722 B on the 0...255 scale, its mean and its
// 10th and 90th percentiles. One line per file: ours, the camera's, and the
// differences. With --pairs, each pair is also written to DIR/<name>.png,
// the camera's picture on the left and ours on the right.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "io/image_loader.h"
#include "io/raw_preview.h"
#include "io/working_image_files.h"
#include "session/auto_adjust.h"

namespace {

namespace fs = std::filesystem;
using vg::Image;

std::vector<uint8_t> readBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Camera left, ours right, top-aligned on a transparent ground.
Image sideBySide(const Image& camera, const Image& ours) {
  Image out(camera.width() + ours.width(), std::max(camera.height(), ours.height()));
  auto place = [&](const Image& img, int x0) {
    for (int y = 0; y < img.height(); ++y)
      std::copy(img.row(img.bounds().y + y), img.row(img.bounds().y + y) + size_t(img.width()) * 4,
                out.at(x0, y));
  };
  place(camera, 0);
  place(ours, camera.width());
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  vg::RAWDevelopSettings settings;
  fs::path pairs;
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--decoder" && i + 1 < argc) {
      settings.decoderVersion = argv[++i];
    } else if (a == "--pairs" && i + 1 < argc) {
      pairs = argv[++i];
    } else if (a.starts_with("--")) {
      std::fprintf(stderr, "usage: vg_raw_look [--decoder ID] [--pairs DIR] RAW...\n");
      return 2;
    } else {
      files.push_back(a);
    }
  }
  if (!pairs.empty()) fs::create_directories(pairs);

  std::printf("%-44s %17s %17s %17s\n", "file", "ours mean/p10/p90", "camera", "difference");
  int status = 0;
  for (const fs::path& file : files) {
    std::optional<Image> camera = vg::rawEmbeddedPreview(readBytes(file));
    if (!camera) {
      std::printf("%-44s no embedded preview\n", file.filename().c_str());
      continue;
    }
    std::shared_ptr<const Image> ours;
    try {
      ours = vg::ImageLoader::load(file, settings).image;
    } catch (const std::exception& e) {
      std::printf("%-44s %s\n", file.filename().c_str(), e.what());
      status = 1;
      continue;
    }
    ours = vg::ImageLoader::downscaled(ours, std::max(camera->width(), camera->height()));
    auto a = vg::AutoAdjust::analyze(*ours), b = vg::AutoAdjust::analyze(*camera);
    if (!a || !b) {
      std::printf("%-44s cannot be measured\n", file.filename().c_str());
      status = 1;
      continue;
    }
    auto triple = [](double m, double lo, double hi) {
      char s[32];
      std::snprintf(s, sizeof s, "%5.0f %5.0f %5.0f", m * 255, lo * 255, hi * 255);
      return std::string(s);
    };
    std::printf("%-44s %17s %17s %17s\n", file.filename().c_str(),
                triple(a->meanLuminance, a->p10Luminance, a->p90Luminance).c_str(),
                triple(b->meanLuminance, b->p10Luminance, b->p90Luminance).c_str(),
                triple(a->meanLuminance - b->meanLuminance, a->p10Luminance - b->p10Luminance,
                       a->p90Luminance - b->p90Luminance)
                    .c_str());
    if (!pairs.empty()) vg::writeWorkingImage(pairs / (file.stem().string() + ".png"), sideBySide(*camera, *ours));
  }
  return status;
}
