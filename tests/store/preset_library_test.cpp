#include <gtest/gtest.h>

#include "model/json.h"
#include "store/lut_library.h"
#include "store/lut_references.h"
#include "store/preset_library.h"
#include "store/sidecar_name.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

TEST(PresetLibrary, SaveListRenameRemove) {
  TempDir dir;
  PresetLibrary lib(dir / "Presets");
  EXPECT_EQ(lib.list().size(), builtInPresets().size());

  GlobalAdjustments a;
  a.exposure = 0.7;
  auto saved = lib.saveNew("  我的预设 ", a, AppliedLUT{"x.cube", "X", 60});
  ASSERT_TRUE(saved.preset) << saved.error;
  EXPECT_EQ(saved.preset->name, "我的预设");
  auto second = lib.saveNew("Another", {}, std::nullopt);
  ASSERT_TRUE(second.preset);

  auto all = lib.list();
  ASSERT_EQ(all.size(), builtInPresets().size() + 2);
  EXPECT_EQ(all.front().id, builtInPresets().front().id) << "built-ins come first";
  EXPECT_EQ(all[builtInPresets().size()].name, "Another");
  EXPECT_EQ(lib.find(saved.preset->id), saved.preset);

  EXPECT_TRUE(lib.rename(saved.preset->id, "改名").preset);
  EXPECT_EQ(lib.find(saved.preset->id)->name, "改名");
  EXPECT_TRUE(lib.rename(saved.preset->id, "改名").preset) << "its own name is not a clash";

  EXPECT_EQ(lib.saveNew(" ", a, std::nullopt).error, "预设名称不能为空");
  EXPECT_EQ(lib.saveNew("a\nb", a, std::nullopt).error, "预设名称不能包含控制字符");
  EXPECT_EQ(lib.saveNew("Another", a, std::nullopt).error, "已有同名预设「Another」");
  EXPECT_EQ(lib.rename(second.preset->id, builtInPresets().front().name).error,
            "已有同名预设「" + builtInPresets().front().name + "」");
  EXPECT_EQ(lib.rename(builtInPresets().front().id, "x").error, "内置预设不能重命名");
  EXPECT_EQ(lib.remove(builtInPresets().front().id).error, "内置预设不能删除");
  EXPECT_EQ(lib.rename("user-00000000-0000-0000-0000-000000000000", "x").error, "找不到该预设");

  auto removed = lib.remove(saved.preset->id);
  ASSERT_TRUE(removed.preset);
  EXPECT_EQ(removed.preset->name, "改名");
  EXPECT_FALSE(lib.find(saved.preset->id));
  EXPECT_EQ(lib.remove(saved.preset->id).error, "找不到该预设");
}

TEST(PresetLibrary, DuplicateGivesAnEditableCopyWithAFreeName) {
  TempDir dir;
  PresetLibrary lib(dir / "Presets");
  const FilterPreset& builtIn = builtInPresets().front();
  auto copy = lib.duplicate(builtIn.id);
  ASSERT_TRUE(copy.preset) << copy.error;
  EXPECT_EQ(copy.preset->name, builtIn.name + " 副本");
  EXPECT_EQ(copy.preset->adjustments, builtIn.adjustments);
  EXPECT_NE(copy.preset->id, builtIn.id);
  EXPECT_EQ(lib.duplicate(builtIn.id).preset->name, builtIn.name + " 副本 2");
  EXPECT_EQ(lib.duplicate(copy.preset->id, "自己的").preset->name, "自己的");
  EXPECT_TRUE(lib.rename(copy.preset->id, "可改名").preset);
  EXPECT_EQ(lib.duplicate("nope").error, "找不到该预设");
}

TEST(PresetLibrary, DamagedFilesAreListedAndHostileIdsIgnored) {
  TempDir dir;
  PresetLibrary lib(dir / "Presets");
  ASSERT_TRUE(lib.saveNew("Good", {}, std::nullopt).preset);
  test::writeFile(dir / "Presets" / "broken.json", "[1, 2");
  test::writeFile(dir / "Presets" / "user-00000000-0000-0000-0000-000000000000.json",
                  R"({"id": "user-11111111-1111-1111-1111-111111111111", "name": "Mismatch"})");
  test::writeFile(dir / "Presets" / "user-22222222-2222-2222-2222-222222222222.json",
                  R"({"id": "user-22222222-2222-2222-2222-222222222222", "name": "Repaired",
                      "adjustments": {"exposure": 99, "hsl": {"bands": []}}})");
  test::writeFile(dir / "Presets" / "huge.json", std::string(PresetLibrary::kMaxFileBytes + 1, ' '));
  test::writeFile(dir / "Presets" / ".user-x.json.tmp-abc123", "partial");
  test::writeFile(dir / "Presets" / "notes.txt", "not a preset file");

  auto listing = lib.scanUserPresets();
  ASSERT_EQ(listing.presets.size(), 2u);
  EXPECT_EQ(listing.presets[1].name, "Repaired");
  EXPECT_EQ(listing.presets[1].adjustments.exposure, 5) << "decoded with the recipe's clamping";
  EXPECT_EQ(listing.presets[1].adjustments.hsl.bands.size(), 8u);
  EXPECT_EQ(listing.damaged,
            (std::vector<PresetLibrary::DamagedFile>{
                {"broken.json", "不是有效的预设文件"},
                {"huge.json", "文件过大"},
                {"user-00000000-0000-0000-0000-000000000000.json", "预设 id 与文件名不符"}}));

  EXPECT_FALSE(lib.removeDamaged("user-22222222-2222-2222-2222-222222222222.json")) << "not damaged";
  EXPECT_FALSE(lib.removeDamaged("notes.txt"));
  EXPECT_TRUE(lib.removeDamaged("broken.json"));
  EXPECT_EQ(lib.scanUserPresets().damaged.size(), 2u);

  test::writeFile(dir / "outside.json", R"({"id": "user-x", "name": "Outside"})");
  EXPECT_FALSE(lib.find("../outside"));
  EXPECT_FALSE(lib.remove("../outside").preset);
  EXPECT_FALSE(lib.removeDamaged("../outside.json"));
  EXPECT_TRUE(fs::exists(dir / "outside.json"));
}

// Reads "LUT_3D_SIZE n" and an optional "TITLE t" line; anything else is rejected.
TEST(PresetLibrary, FileFormOnItsOwn) {
  const std::string id = "user-0F1E2D3C-4B5A-4978-8796-A5B4C3D2E1F0";
  FilterPreset p{id, "Warm \xff", {}, AppliedLUT{"film.cube", "Film", 70}};
  p.adjustments.exposure = 0.3;
  p.adjustments.curves.rgb.points = {{0, 0.1}, {1, 0.9}};
  const std::string text = PresetLibrary::encode(p);  // invalid UTF-8 is replaced, not thrown on
  auto back = PresetLibrary::decode(text, id);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->name, "Warm \xef\xbf\xbd");
  back->name = p.name;
  EXPECT_EQ(*back, p);

  EXPECT_FALSE(PresetLibrary::decode(text, "user-11111111-1111-1111-1111-111111111111")) << "id must match the file";
  EXPECT_FALSE(PresetLibrary::decode(R"({"id": "x"})", "x")) << "only user ids";
  EXPECT_FALSE(PresetLibrary::decode("[]", id));
  EXPECT_EQ(PresetLibrary::decode(R"({"id": ")" + id + R"("})", id)->name, id) << "a nameless preset shows its id";
}

LutLibrary::Inspector fakeInspector(int* calls = nullptr) {
  return [calls](const fs::path& p) -> std::variant<LutLibrary::LutInfo, std::string> {
    if (calls) ++*calls;
    if (!fs::exists(p)) return std::string("LUT 文件格式错误：无法读取文件");
    const std::string text = test::readFile(p);
    LutLibrary::LutInfo info;
    if (text.rfind("TITLE ", 0) == 0) info.title = text.substr(6, text.find('\n') - 6);
    const auto size = text.find("LUT_3D_SIZE ");
    if (size == std::string::npos) return std::string("LUT 文件格式错误：缺少有效的 LUT_3D_SIZE");
    info.size = std::stoi(text.substr(size + 12));
    return info;
  };
}

TEST(LutLibrary, ImportValidatesCopiesAndNumbersClashes) {
  TempDir dir;
  int inspections = 0;
  LutLibrary lib(dir / "LUTs", fakeInspector(&inspections));
  fs::create_directories(dir / "a");
  fs::create_directories(dir / "b");
  test::writeFile(dir / "a" / "look.cube", "TITLE Warm\nLUT_3D_SIZE 2\n");
  test::writeFile(dir / "b" / "look.CUBE", "LUT_3D_SIZE 17\n");
  test::writeFile(dir / "bad.cube", "garbage");

  auto first = lib.import(dir / "a" / "look.cube");
  ASSERT_TRUE(first.entry) << first.error;
  EXPECT_EQ(*first.entry, (LutLibrary::Entry{"look.cube", "look", "Warm", 2, 25, {}}));
  auto second = lib.import(dir / "b" / "look.CUBE");
  ASSERT_TRUE(second.entry);
  EXPECT_EQ(second.entry->filename, "look-2.cube") << "the extension is the library's own";
  EXPECT_EQ(second.entry->size, 17);
  EXPECT_EQ(test::readFile(dir / "LUTs" / "look.cube"), "TITLE Warm\nLUT_3D_SIZE 2\n") << "never replaced";

  EXPECT_EQ(lib.import(dir / "bad.cube").error, "LUT 文件格式错误：缺少有效的 LUT_3D_SIZE");
  EXPECT_FALSE(lib.import(dir / "missing.cube").entry);

  // A file placed by hand that is not a LUT is listed with its error; other
  // names are not library files.
  test::writeFile(dir / "LUTs" / "hand.cube", "junk");
  test::writeFile(dir / "LUTs" / "readme.txt", "LUT_3D_SIZE 2\n");
  auto listed = lib.list();
  ASSERT_EQ(listed.size(), 3u) << "no temporary files are left behind";
  EXPECT_EQ(listed[0].filename, "hand.cube");
  EXPECT_EQ(listed[0].error, "LUT 文件格式错误：缺少有效的 LUT_3D_SIZE");
  EXPECT_EQ(listed[2].filename, "look.cube");
  EXPECT_EQ(listed[2].title, "Warm");

  const int before = inspections;
  lib.list();
  EXPECT_EQ(inspections, before) << "unchanged files are not parsed again";

  EXPECT_TRUE(lib.remove("look.cube"));
  EXPECT_FALSE(lib.remove("look.cube"));
  EXPECT_FALSE(lib.remove("readme.txt"));
  EXPECT_EQ(lib.list().size(), 2u);
}

TEST(LutLibrary, RenameNeverReplacesAndRejectsBadNames) {
  TempDir dir;
  LutLibrary lib(dir / "LUTs", fakeInspector());
  fs::create_directories(dir / "LUTs");
  test::writeFile(dir / "LUTs" / "a.cube", "LUT_3D_SIZE 2\n");
  test::writeFile(dir / "LUTs" / "b.cube", "LUT_3D_SIZE 3\n");

  auto renamed = lib.rename("a.cube", " 暖色 ");
  ASSERT_TRUE(renamed.entry) << renamed.error;
  EXPECT_EQ(renamed.entry->filename, "暖色.cube");
  EXPECT_EQ(renamed.entry->size, 2);
  EXPECT_FALSE(fs::exists(dir / "LUTs" / "a.cube"));

  EXPECT_EQ(lib.rename("暖色.cube", "b").error, "已有同名 LUT「b」");
  EXPECT_EQ(test::readFile(dir / "LUTs" / "b.cube"), "LUT_3D_SIZE 3\n");
  EXPECT_EQ(lib.rename("暖色.cube", "").error, "LUT 名称不能为空");
  for (const char* bad : {"../x", ".hidden", "a/b", "tab\there"}) {
    EXPECT_EQ(lib.rename("暖色.cube", bad).error, "LUT 名称无效") << bad;
  }
  EXPECT_EQ(lib.rename("missing.cube", "x").error, "找不到该 LUT");
  EXPECT_TRUE(fs::exists(dir / "LUTs" / "暖色.cube"));
}

TEST(LutLibrary, ResolvesOnlyFilesInsideTheFolder) {
  TempDir dir;
  LutLibrary lib(dir / "LUTs", fakeInspector());
  fs::create_directories(dir / "LUTs");
  test::writeFile(dir / "LUTs" / "ok.cube", "LUT_3D_SIZE 2\n");
  test::writeFile(dir / "secret.cube", "LUT_3D_SIZE 2\n");
  fs::create_symlink(dir / "secret.cube", dir / "LUTs" / "escape.cube");

  EXPECT_TRUE(lib.resolve("ok.cube"));
  for (const char* hostile : {"../secret.cube", "escape.cube", "..", ".", "", "/etc/passwd",
                              "sub/ok.cube", "missing.cube"}) {
    EXPECT_FALSE(lib.resolve(hostile)) << hostile;
  }
  EXPECT_FALSE(lib.remove("../secret.cube"));
  EXPECT_TRUE(fs::exists(dir / "secret.cube"));
}

TEST(LutReferences, RenamedLutStaysAppliedInEditsAndPresets) {
  TempDir dir;
  const auto folders = LutReferenceFolders::in(dir.path());
  EditDocument doc;
  doc.adjustments.exposure = 1.25;
  doc.lut = AppliedLUT{"look.cube", "look", 70};
  const std::string user = sidecarNames("/photos/a.jpg").current;
  const std::string other = sidecarNames("/photos/b.jpg").current;
  fs::create_directories(folders.edits);
  test::writeFile(folders.edits / user, encodeEditDocument(doc));
  doc.lut->filename = "other.cube";
  test::writeFile(folders.edits / other, encodeEditDocument(doc));
  test::writeFile(folders.edits / "edit-0123456789abcdef.corrupt-1.json", R"({"lut":{"filename":"look.cube"}})");
  PresetLibrary presets(folders.presets);
  auto preset = presets.saveNew("P", {}, AppliedLUT{"look.cube", "look", 100});
  ASSERT_TRUE(preset.preset);

  EXPECT_EQ(countLutReferences(folders, "look.cube"), 2);
  const auto result = retargetLutReferences(folders, "look.cube", "暖色.cube");
  EXPECT_EQ(result.updated, 2);
  EXPECT_TRUE(result.failures.empty());
  EXPECT_EQ(countLutReferences(folders, "look.cube"), 0);

  auto updated = decodeEditDocument(test::readFile(folders.edits / user));
  ASSERT_TRUE(updated && updated->lut);
  EXPECT_EQ(updated->lut->filename, "暖色.cube");
  EXPECT_EQ(updated->lut->strength, 70) << "only the file name changes";
  EXPECT_EQ(updated->adjustments.exposure, 1.25);
  EXPECT_EQ(decodeEditDocument(test::readFile(folders.edits / other))->lut->filename, "other.cube");
  EXPECT_EQ(presets.find(preset.preset->id)->lut->filename, "暖色.cube");
  EXPECT_EQ(test::readFile(folders.edits / "edit-0123456789abcdef.corrupt-1.json"),
            R"({"lut":{"filename":"look.cube"}})")
      << "set-aside copies are not recipes";
}

}  // namespace
}  // namespace vg
