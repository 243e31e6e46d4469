#include "io/batch_engine.h"

#include <algorithm>
#include <system_error>
#include <unordered_set>

#include "io/document_band_source.h"
#include "io/image_exporter.h"
#include "io/image_formats.h"
#include "io/image_header.h"
#include "io/image_loader.h"
#include "render/render_engine.h"
#include "store/edit_store.h"

namespace vg {
namespace {

bool endsWith(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

// Case-folding of file names for collision checks: ASCII letters and the
// Latin-1 / Latin Extended-A letters that have a simple one-to-one lower case
// (what file systems that ignore case fold as well). Other text is compared as is.
std::string foldCase(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size(); ++i) {
    unsigned char c = utf8[i];
    if (c < 0x80) {
      out.push_back(char(c >= 'A' && c <= 'Z' ? c + 32 : c));
    } else if (c == 0xC3 && i + 1 < utf8.size()) {
      unsigned char d = utf8[i + 1];
      // U+00C0...U+00DE (except U+00D7 ×) lower to U+00E0...U+00FE.
      out.push_back(char(c));
      out.push_back(char(d >= 0x80 && d <= 0x9E && d != 0x97 ? d + 0x20 : d));
      ++i;
    } else if (c == 0xC4 && i + 1 < utf8.size()) {
      unsigned char d = utf8[i + 1];
      // U+0100...U+0137: even code points are upper case, odd ones lower.
      out.push_back(char(c));
      out.push_back(char(d >= 0x80 && d <= 0xB7 && d % 2 == 0 ? d + 1 : d));
      ++i;
    } else {
      out.push_back(char(c));
    }
  }
  return out;
}

}  // namespace

std::string BatchEngine::sanitizedSuffix(std::string_view suffix) {
  std::string out;
  out.reserve(suffix.size());
  for (char c : suffix) {
    switch (c) {
      case '/': case '\\': case ':': case '?': case '%':
      case '*': case '|': case '"': case '<': case '>':
        out.push_back('-');
        break;
      default:
        out.push_back(c);
    }
  }
  return out.empty() ? std::string(kDefaultSuffix) : out;
}

std::vector<std::filesystem::path> BatchEngine::scanFolder(const std::filesystem::path& folder,
                                                           std::string_view suffix,
                                                           const std::function<bool()>& isCancelled) {
  std::error_code ec;
  std::filesystem::directory_iterator it(folder, ec);
  if (ec) throw BatchError(2, "无法读取文件夹：" + ec.message());
  const std::string cleanSuffix = sanitizedSuffix(suffix);
  std::vector<std::filesystem::path> found;
  for (; it != std::filesystem::directory_iterator(); it.increment(ec)) {
    if (ec) throw BatchError(2, "无法读取文件夹：" + ec.message());
    if (isCancelled && isCancelled()) return {};
    const auto& path = it->path();
    std::error_code statError;
    if (!std::filesystem::exists(path, statError) || std::filesystem::is_directory(path, statError)) {
      continue;
    }
    if (!isSupportedImage(path)) continue;
    if (!cleanSuffix.empty() && endsWith(path.stem().string(), cleanSuffix)) continue;
    found.push_back(path);
  }
  std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
    return a.filename().string() < b.filename().string();
  });
  return found;
}

std::filesystem::path BatchEngine::outputURL(const std::filesystem::path& source, const Config& config) {
  std::string name = source.stem().string() + sanitizedSuffix(config.nameSuffix) + "." +
                     std::string(defaultExtension(config.options.format));
  return config.outputFolder / name;
}

std::vector<BatchEngine::PlannedFile> BatchEngine::plan(const std::vector<std::filesystem::path>& sources,
                                                        const Config& config) {
  std::vector<PlannedFile> planned;
  std::unordered_set<std::string> taken;
  for (const auto& source : sources) {
    PlannedFile file{source, outputURL(source, config), std::nullopt};
    std::string key = foldCase(std::filesystem::absolute(file.output).lexically_normal().string());
    if (!taken.insert(key).second) {
      file.failure = failureMessage(source, "输出文件名与其他图片冲突");
    }
    planned.push_back(std::move(file));
  }
  return planned;
}

int BatchEngine::workerCount(const std::vector<std::filesystem::path>& sources) {
  int64_t largest = 0;
  for (const auto& s : sources) {
    if (auto d = readImageDimensions(s)) largest = std::max(largest, d->pixels());
  }
  return largest > kSingleWorkerPixels ? 1 : 2;
}

EditDocument BatchEngine::recipeFor(const std::filesystem::path& source, const Config& config,
                                    EditStore* store) {
  EditDocument doc;
  if (config.useSavedEdits && store) {
    if (auto saved = store->load(source)) doc = std::move(*saved);
  }
  if (config.preset) doc = applyPreset(doc, *config.preset, config.strength);
  return doc;
}

bool BatchEngine::process(const std::filesystem::path& source, const Config& config,
                          const std::function<bool()>& isCancelled, EditStore* store, RenderEngine& engine) {
  auto checkCancelled = [&] {
    if (isCancelled && isCancelled()) throw BatchCancelled();
  };
  const auto output = outputURL(source, config);
  if (ImageExporter::sameFile(source, output)) throw BatchError(1, "输出位置不能覆盖原图");
  std::error_code ec;
  if (config.skipExisting && std::filesystem::exists(output, ec)) return false;
  checkCancelled();

  EditDocument recipe = recipeFor(source, config, store);
  ImageLoader::Loaded loaded = ImageLoader::load(source, recipe.raw);
  checkCancelled();

  DocumentBandSource picture(engine, *loaded.image, loaded.opaque, std::move(recipe));
  checkCancelled();

  std::filesystem::create_directories(config.outputFolder, ec);
  ExportOptions options = config.options;
  options.metadataSourceURL = source;
  auto result = ImageExporter::exportImage(picture, output, options, [&] {
    return isCancelled && isCancelled();
  });
  if (result == ImageExporter::Result::cancelled) throw BatchCancelled();
  return true;
}

std::string BatchEngine::failureMessage(const std::filesystem::path& source,
                                        std::string_view description) {
  return source.filename().string() + "：" + std::string(description);
}

}  // namespace vg
