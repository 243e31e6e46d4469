// EditorSession: the work it hands to the background executor — decoding
// (the full source after a reduced opening, RAW re-development), filter
// thumbnails, export and automatic straightening — and how each result is
// taken back on the main thread.
#include <cmath>
#include <cstdio>

#include "io/document_band_source.h"
#include "model/log.h"
#include "render/document_render.h"
#include "render/heal_stage.h"
#include "session/editor_session.h"
#include "session/horizon_detector.h"

namespace vg {

namespace {

constexpr std::string_view kExportBusyMessage = "已有导出正在进行中";
constexpr std::string_view kWaitingForRawPhase = "等待 RAW 显影…";
constexpr std::string_view kWaitingForSourcePhase = "正在载入原图…";
constexpr std::string_view kExportingPhase = "正在导出全分辨率图像…";
constexpr std::string_view kNoHorizonMessage = "未检测到可用的地平线";

HorizonDetectorFn builtInHorizonDetector() {
  return [](const Image& source, const CropSettings& crop, const AsyncCancelToken* cancel) {
    return detectHorizonAngle(source, crop, cancel);
  };
}

}  // namespace

// ---- Decoding ----------------------------------------------------------------------------------

void EditorSession::startDecode(RAWDevelopSettings settings) {
  requestedDevelopment_ = settings;
  setBusy(sources_.full ? BusyFlag::rawDecoding : BusyFlag::loading, true);
  decodes_.request(
      [file = sourceURL_, settings](const AsyncCancelToken& token) -> std::optional<std::shared_ptr<DecodedSource>> {
        auto decoded = std::make_shared<DecodedSource>();
        try {
          ImageLoader::Loaded loaded = ImageLoader::load(file, settings);
          if (token.isCancelled()) return std::nullopt;
          decoded->full = loaded.image;
          decoded->pixelSize = loaded.pixelSize;
          decoded->opaque = loaded.opaque;
          decoded->preview = ImageLoader::downscaled(loaded.image, ImageLoader::kPreviewMaxDimension);
        } catch (const ImageLoadError& e) {
          decoded->error = e.what();
        }
        return decoded;
      },
      [this](std::shared_ptr<DecodedSource> decoded) { adoptDecoded(std::move(*decoded)); });
}

void EditorSession::adoptDecoded(DecodedSource decoded) {
  if (decoded.error) {
    showToast(isRAW_ ? "RAW 显影失败：" + *decoded.error : *decoded.error, ToastMessage::Kind::error);
    if (export_ && !export_->running) {
      finishExport({export_->destination, false, false, *decoded.error});
    }
    return;
  }
  sources_.full = std::move(decoded.full);
  sources_.fullId = nextHealSourceId();
  sources_.preview = std::move(decoded.preview);
  sources_.previewId = nextHealSourceId();
  pixelSize_ = decoded.pixelSize;
  sourceOpaque_ = decoded.opaque;
  if (pixelSize_.width > 0) sources_.previewScale = sources_.preview->width() / pixelSize_.width;
  maskCache_->clear();
  thumbnailKey_.reset();
  previews_->setSources(sources_);
  notify(Change::source);
  if (export_ && !export_->running && !decodes_.busy()) launchExport();
}

// ---- Filter thumbnails ----------------------------------------------------------------------------

void EditorSession::requestFilterThumbnails(std::vector<FilterPreset> presets) {
  if (closed_ || !sources_.preview) return;
  Hasher h;
  hashAppend(h, renderSignature(document_));
  h.addWord(sources_.previewId);
  for (const FilterPreset& p : presets) {
    h.addString(p.id);
    hashAppend(h, p.adjustments);
    h.addInt(p.lut.has_value());
    if (p.lut) hashAppend(h, *p.lut);
  }
  const std::size_t key = h.finish();
  if (thumbnailKey_ == key) return;
  thumbnailKey_ = key;
  thumbnails_.request(
      [engine = services_.engine, preview = sources_.preview, doc = document_, presets = std::move(presets),
       width = pixelSize_.width](const AsyncCancelToken& token)
          -> std::optional<std::map<std::string, std::shared_ptr<const Image>>> {
        auto small = ImageLoader::downscaled(preview, ImageLoader::kThumbnailMaxDimension);
        MaskImageCache masks(4, std::size_t(16) << 20);
        const HealSourceId smallId = nextHealSourceId();
        std::map<std::string, std::shared_ptr<const Image>> thumbnails;
        for (const FilterPreset& preset : presets) {
          if (token.isCancelled()) return std::nullopt;
          RenderOptions options;
          options.scale = width > 0 ? small->width() / width : 1;
          options.integralRect = true;
          options.sourceId = smallId;
          options.cancel = &token;
          Image image = renderDocument(*engine, masks, *small, applyPreset(doc, preset, 100), options).image;
          thumbnails[preset.id] = std::make_shared<const Image>(std::move(image));
        }
        if (token.isCancelled()) return std::nullopt;
        return thumbnails;
      },
      [this](std::map<std::string, std::shared_ptr<const Image>> thumbnails) {
        filterThumbnails_ = std::move(thumbnails);
        notify(Change::filterThumbnails);
      });
}

const std::string& EditorSession::thumbnailFingerprint() {
  if (!thumbnailFingerprint_) {
    Hasher h;
    h.addString(sourceURL_.string());
    h.addDouble(pixelSize_.width);
    h.addDouble(pixelSize_.height);
    if (sources_.preview) h.addWord(sourceFingerprint(*sources_.preview));
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(h.finish()));
    thumbnailFingerprint_ = text;
  }
  return *thumbnailFingerprint_;
}

// ---- Export -----------------------------------------------------------------------------------------

bool EditorSession::startExport(std::filesystem::path destination, ImageExporter::Options options,
                                std::function<void(const ExportOutcome&)> done) {
  if (closed_) return false;
  if (exporting_) {
    showToast(std::string(kExportBusyMessage), ToastMessage::Kind::warning);
    return false;
  }
  // The photograph is where the metadata come from and what is never written.
  if (!options.metadataSourceURL) options.metadataSourceURL = sourceURL_;
  try {
    ImageExporter::preflight(destination, options);
  } catch (const ExportError& e) {
    showToast(std::string("导出失败：") + e.what(), ToastMessage::Kind::error);
    return false;
  }
  export_ = std::make_unique<Export>();
  export_->destination = std::move(destination);
  export_->options = std::move(options);
  export_->document = document_;
  export_->done = std::move(done);
  exporting_ = true;
  if (!sources_.full || decodes_.busy()) {
    exportPhase_ = std::string(isRAW_ ? kWaitingForRawPhase : kWaitingForSourcePhase);
    notify(Change::exporting);
  } else {
    launchExport();
  }
  return true;
}

void EditorSession::launchExport() {
  Export& e = *export_;
  e.running = true;
  exportPhase_ = std::string(kExportingPhase);
  notify(Change::exporting);
  auto hop = mainHop();
  services_.background.post([this, hop, engine = services_.engine, source = sources_.full, opaque = sourceOpaque_, doc = e.document,
                             destination = e.destination, options = e.options, token = e.token] {
    ExportOutcome outcome;
    outcome.destination = destination;
    try {
      DocumentBandSource picture(*engine, *source, opaque, doc);
      const auto result =
          ImageExporter::exportImage(picture, destination, options, [token] { return token->isCancelled(); });
      outcome.written = result == ImageExporter::Result::written;
      outcome.cancelled = !outcome.written;
    } catch (const std::exception& x) {
      outcome.error = x.what();
    }
    hop([this, outcome, token] {
      if (export_ && export_->token == token) finishExport(outcome);
    });
  });
}

void EditorSession::finishExport(ExportOutcome outcome) {
  auto done = std::move(export_->done);
  export_.reset();
  exporting_ = false;
  exportPhase_.clear();
  if (outcome.written) {
    showToast("已导出：" + outcome.destination.filename().string(), ToastMessage::Kind::success);
  } else if (outcome.error) {
    showToast("导出失败：" + *outcome.error, ToastMessage::Kind::error);
  }
  notify(Change::exporting);
  if (done) done(outcome);
}

void EditorSession::cancelExport() {
  if (!export_) return;
  export_->token->cancel();
  // A running export notices at its next check; one still waiting ends now.
  if (!export_->running) finishExport({export_->destination, false, true, std::nullopt});
}

// ---- Automatic straightening -----------------------------------------------------------------------

void EditorSession::autoStraighten() {
  if (closed_ || !sources_.preview) return;
  HorizonDetectorFn detect = services_.detectHorizon ? services_.detectHorizon : builtInHorizonDetector();
  operation<std::optional<double>>(BusyFlag::detectingHorizon)
      .start(
          [detect, preview = sources_.preview, crop = document_.crop](const AsyncCancelToken& token) {
            return detect(*preview, crop, &token);
          },
          [this](std::optional<double> angle, bool stale) {
            if (stale) {
              showToast("编辑已变化，自动拉直结果已丢弃", ToastMessage::Kind::warning);
              return;
            }
            if (!angle || !std::isfinite(*angle) || std::abs(*angle) > 45) {
              showToast(std::string(kNoHorizonMessage), ToastMessage::Kind::warning);
              return;
            }
            applyEdit("自动拉直", [&](EditDocument& doc) {
              doc.crop = straightened(doc.crop, *angle, pixelSize_.width, pixelSize_.height);
            });
          });
}

}  // namespace vg
