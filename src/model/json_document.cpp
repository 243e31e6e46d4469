// JSON decoding and encoding of a whole EditDocument.
#include "model/json.h"
#include "model/json_fields.h"

namespace vg {

using namespace jsonfields;
using OJson = nlohmann::ordered_json;

namespace {

template <class T>
OJson listJson(const std::vector<T>& list) {
  OJson a = OJson::array();
  for (const auto& e : list) a.push_back(toJson(e));
  return a;
}

}  // namespace

std::optional<EditDocument> decodeEditDocument(const Json& v) {
  if (!v.is_object()) return std::nullopt;
  EditDocument d;
  if (const Json* m = member(v, "adjustments")) {
    d.adjustments = decodeGlobalAdjustments(*m).value_or(GlobalAdjustments{});
  }
  // The lists are decoded as a whole: one element that does not decode
  // empties its list, and only that list.
  d.masks = readList<MaskLayer>(v, "masks", [](const Json& e) { return decodeMaskLayer(e); });
  if (const Json* m = member(v, "crop")) d.crop = decodeCropSettings(*m).value_or(CropSettings{});
  if (const Json* m = member(v, "raw")) {
    d.raw = decodeRAWDevelopSettings(*m).value_or(RAWDevelopSettings{});
  }
  if (const Json* m = member(v, "lens")) {
    d.lens = decodeLensCorrectionSettings(*m).value_or(LensCorrectionSettings{});
  }
  d.heals = readList<HealStroke>(v, "heals", [](const Json& e) { return decodeHealStroke(e); });
  d.redEyes = readList<RedEyeSpot>(v, "redEyes", [](const Json& e) { return decodeRedEyeSpot(e); });
  d.filterID = readString(v, "filterID");
  readFields(v, documentFields(), d);  // filterStrength
  if (const Json* m = member(v, "preFilterAdjustments")) {
    d.preFilterAdjustments = decodeGlobalAdjustments(*m);
  }
  d.coordinateSpace = readInteger(v, "coordinateSpace");
  d.schemaVersion = readInteger(v, "schemaVersion").value_or(kCurrentSchemaVersion);
  if (const Json* m = member(v, "lut")) d.lut = decodeAppliedLUT(*m);
  return d;
}

std::optional<EditDocument> decodeEditDocument(std::string_view jsonText) {
  Json parsed = Json::parse(jsonText.begin(), jsonText.end(), nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) return std::nullopt;
  return decodeEditDocument(parsed);
}

OJson toJson(const EditDocument& d) {
  OJson o = OJson::object();
  o["adjustments"] = toJson(d.adjustments);
  o["masks"] = listJson(d.masks);
  o["crop"] = toJson(d.crop);
  o["raw"] = toJson(d.raw);
  o["lens"] = toJson(d.lens);
  o["heals"] = listJson(d.heals);
  o["redEyes"] = listJson(d.redEyes);
  if (d.filterID) o["filterID"] = *d.filterID;
  o["filterStrength"] = d.filterStrength;
  if (d.preFilterAdjustments) o["preFilterAdjustments"] = toJson(*d.preFilterAdjustments);
  if (d.coordinateSpace) o["coordinateSpace"] = *d.coordinateSpace;
  o["schemaVersion"] = d.schemaVersion;
  if (d.lut) o["lut"] = toJson(*d.lut);
  return o;
}

std::string dumpCompact(const OJson& value) {
  return value.dump(-1, ' ', false, OJson::error_handler_t::replace);
}

std::string encodeEditDocument(const EditDocument& d) { return dumpCompact(toJson(d)); }

}  // namespace vg
