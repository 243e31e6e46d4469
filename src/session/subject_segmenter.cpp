// U²-Net-p through OpenCV DNN. See subject_segmenter.h.
#include "session/subject_segmenter.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

namespace vg {
namespace {

// Far above the 4.5 MB of the model: a larger file is not ours, and is not
// read into memory to find that out.
constexpr std::uintmax_t kMaxModelBytes = std::uintmax_t(64) << 20;

constexpr const char* kInputName = "input.1";
constexpr const char* kOutputName = "1959";
constexpr std::array<float, 3> kMean{0.485f, 0.456f, 0.406f};
constexpr std::array<float, 3> kStd{0.229f, 0.224f, 0.225f};

std::string sha256Hex(const std::vector<uchar>& bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    throw SubjectModelError("SHA-256 of the subject model could not be computed");
  }
  std::string hex;
  char pair[3];
  for (unsigned i = 0; i < length; ++i) {
    std::snprintf(pair, sizeof pair, "%02x", digest[i]);
    hex += pair;
  }
  return hex;
}

std::vector<uchar> readModel(const std::filesystem::path& file) {
  std::error_code ec;
  const std::uintmax_t size = std::filesystem::file_size(file, ec);
  if (ec) throw SubjectModelError("subject model " + file.string() + " cannot be read: " + ec.message());
  if (size > kMaxModelBytes) throw SubjectModelError("subject model " + file.string() + " is too large to be the model");
  std::ifstream in(file, std::ios::binary);
  std::vector<uchar> bytes(static_cast<std::size_t>(size));
  if (!in || !in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(bytes.size()))) {
    throw SubjectModelError("subject model " + file.string() + " cannot be read");
  }
  return bytes;
}

// The network's input blob: RGB planes, scaled by the largest value, then
// normalised per channel.
cv::Mat inputBlob(const Rgba8Bitmap& bitmap) {
  const cv::Mat rgba(bitmap.height, bitmap.width, CV_8UC4, const_cast<std::uint8_t*>(bitmap.pixels.data()));
  const int n = SubjectSegmenter::kInputSize;
  cv::Mat small;
  const bool shrinking = bitmap.width >= n && bitmap.height >= n;
  cv::resize(rgba, small, cv::Size(n, n), 0, 0, shrinking ? cv::INTER_AREA : cv::INTER_LINEAR);

  int largest = 0;
  for (int y = 0; y < n; ++y) {
    const std::uint8_t* p = small.ptr<std::uint8_t>(y);
    for (int x = 0; x < n; ++x, p += 4) largest = std::max({largest, int(p[0]), int(p[1]), int(p[2])});
  }
  const float scale = largest > 0 ? 1.0f / float(largest) : 0.0f;  // an all-black picture stays 0

  const int shape[] = {1, 3, n, n};
  cv::Mat blob(4, shape, CV_32F);
  float* planes = blob.ptr<float>();
  const std::size_t plane = std::size_t(n) * std::size_t(n);
  for (int y = 0; y < n; ++y) {
    const std::uint8_t* p = small.ptr<std::uint8_t>(y);
    for (int x = 0; x < n; ++x, p += 4) {
      const std::size_t i = std::size_t(y) * std::size_t(n) + std::size_t(x);
      for (int c = 0; c < 3; ++c) planes[plane * std::size_t(c) + i] = (float(p[c]) * scale - kMean[c]) / kStd[c];
    }
  }
  return blob;
}

}  // namespace

struct SubjectSegmenter::Network {
  cv::dnn::Net net;
};

SubjectSegmenter::SubjectSegmenter(std::filesystem::path modelFile) : file_(std::move(modelFile)) {}
SubjectSegmenter::~SubjectSegmenter() = default;

std::filesystem::path SubjectSegmenter::defaultModelFile() {
  if (const char* dir = std::getenv("VERDANTGLASS_MODELS_DIR"); dir && *dir) {
    return std::filesystem::path(dir) / kModelFileName;
  }
  return std::filesystem::path(VG_MODELS_DIR) / kModelFileName;
}

std::shared_ptr<SubjectSegmenter> SubjectSegmenter::shared() {
  static std::mutex lock;
  static std::shared_ptr<SubjectSegmenter> instance;
  std::lock_guard<std::mutex> guard(lock);
  std::filesystem::path file = defaultModelFile();
  if (!instance || instance->modelFile() != file) instance = std::make_shared<SubjectSegmenter>(std::move(file));
  return instance;
}

void SubjectSegmenter::load() {
  std::lock_guard<std::mutex> guard(lock_);
  loadLocked();
}

void SubjectSegmenter::loadLocked() {
  if (network_) return;
  const std::vector<uchar> bytes = readModel(file_);
  const std::string digest = sha256Hex(bytes);
  if (digest != kModelSha256) {
    throw SubjectModelError("subject model " + file_.string() + " is damaged or not the expected file (SHA-256 " +
                            digest + ", expected " + std::string(kModelSha256) + ")");
  }
  auto network = std::make_unique<Network>();
  try {
    network->net = cv::dnn::readNetFromONNX(bytes);
    network->net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    network->net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
  } catch (const cv::Exception& e) {
    throw SubjectModelError("subject model " + file_.string() + " cannot be loaded: " + e.what());
  }
  if (network->net.empty()) throw SubjectModelError("subject model " + file_.string() + " holds no network");
  network_ = std::move(network);
}

MaskRaster SubjectSegmenter::probabilities(const Rgba8Bitmap& bitmap) {
  if (bitmap.width <= 0 || bitmap.height <= 0) throw std::invalid_argument("subject segmentation of an empty bitmap");
  const cv::Mat blob = inputBlob(bitmap);
  cv::Mat map;
  {
    std::lock_guard<std::mutex> guard(lock_);
    loadLocked();
    try {
      network_->net.setInput(blob, kInputName);
      map = network_->net.forward(kOutputName).clone();
    } catch (const cv::Exception& e) {
      throw SubjectModelError(std::string("subject network failed: ") + e.what());
    }
  }
  const int n = kInputSize;
  if (map.total() != std::size_t(n) * std::size_t(n) || map.type() != CV_32F) {
    throw SubjectModelError("subject network returned an output of an unexpected shape");
  }
  const cv::Mat square(n, n, CV_32F, map.ptr<float>());
  cv::Mat full;
  cv::resize(square, full, cv::Size(bitmap.width, bitmap.height), 0, 0, cv::INTER_LINEAR);

  MaskRaster out(bitmap.width, bitmap.height);
  for (int y = 0; y < bitmap.height; ++y) {
    const float* p = full.ptr<float>(y);
    std::uint8_t* d = &out.at(0, y);
    for (int x = 0; x < bitmap.width; ++x) {
      const float v = p[x] * 255.0f;
      d[x] = v > 0.0f ? std::uint8_t(std::min(v, 255.0f)) : 0;  // NaN lands on 0
    }
  }
  return out;
}

}  // namespace vg
