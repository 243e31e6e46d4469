#include "model/document.h"

namespace vg {

const FieldTable<EditDocument>& documentFields() {
  static const FieldTable<EditDocument> table(
      {{"filterStrength", &EditDocument::filterStrength, 0, 100, 100, 1, "强度", "滤镜"}});
  return table;
}

EditDocument::RenderSignature renderSignature(const EditDocument& doc) {
  EditDocument::RenderSignature s;
  s.adjustments = doc.adjustments;
  s.masks.reserve(doc.masks.size());
  for (const auto& m : doc.masks) s.masks.push_back(m.renderData());
  s.crop = doc.crop;
  s.raw = doc.raw;
  s.lens = doc.lens;
  s.heals = doc.heals;
  s.redEyes = doc.redEyes;
  s.lut = doc.lut;
  return s;
}

bool isNoEdit(const EditDocument& doc) {
  const CropSettings& c = doc.crop;
  const bool cropUnchanged = c.angle == 0 && c.quarterTurn == 0 && !c.rect &&
                             !c.flipHorizontal && !c.flipVertical;
  const bool rawUnchanged = doc.raw == RAWDevelopSettings{};
  const bool lensUnchanged = doc.lens.distortion == 0 && doc.lens.vignette == 0;
  return doc.adjustments == GlobalAdjustments{} && doc.masks.empty() && cropUnchanged &&
         rawUnchanged && lensUnchanged && doc.heals.empty() && doc.redEyes.empty() && !doc.lut &&
         !doc.filterID;
}

void hashAppend(Hasher& h, const EditDocument& v) {
  hashAppend(h, v.adjustments);
  hashAppend(h, v.masks);
  hashAppend(h, v.crop);
  hashAppend(h, v.raw);
  hashAppend(h, v.lens);
  hashAppend(h, v.heals);
  hashAppend(h, v.redEyes);
  h.addBool(v.filterID.has_value());
  if (v.filterID) h.addString(*v.filterID);
  hashFields(h, documentFields(), v);  // filterStrength
  hashAppend(h, v.preFilterAdjustments);
  hashAppend(h, v.coordinateSpace);
  h.addInt(v.schemaVersion);
  hashAppend(h, v.lut);
}

void hashAppend(Hasher& h, const EditDocument::RenderSignature& v) {
  hashAppend(h, v.adjustments);
  hashAppend(h, v.masks);
  hashAppend(h, v.crop);
  hashAppend(h, v.raw);
  hashAppend(h, v.lens);
  hashAppend(h, v.heals);
  hashAppend(h, v.redEyes);
  hashAppend(h, v.lut);
}

}  // namespace vg
