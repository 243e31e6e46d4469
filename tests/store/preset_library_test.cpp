#include <gtest/gtest.h>

#include "store/lut_library.h"
#include "store/preset_library.h"
#include "support/test_support.h"

namespace vg {
namespace {

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

  auto found = lib.find(saved.preset->id);
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, *saved.preset);

  auto renamed = lib.rename(saved.preset->id, "改名");
  ASSERT_TRUE(renamed.preset);
  EXPECT_EQ(lib.find(saved.preset->id)->name, "改名");
  EXPECT_FALSE(lib.rename(saved.preset->id, "   ").preset);
  EXPECT_FALSE(lib.saveNew("", a, std::nullopt).preset);

  EXPECT_TRUE(lib.remove(saved.preset->id));
  EXPECT_FALSE(lib.find(saved.preset->id));
  EXPECT_FALSE(lib.remove(builtInPresets().front().id)) << "built-ins cannot be deleted";
}

TEST(PresetLibrary, BadFilesAndHostileIdsAreIgnored) {
  TempDir dir;
  PresetLibrary lib(dir / "Presets");
  ASSERT_TRUE(lib.saveNew("Good", {}, std::nullopt).preset);
  std::filesystem::create_directories(dir / "Presets");
  test::writeFile(dir / "Presets" / "broken.json", "[1, 2");
  test::writeFile(dir / "Presets" / "user-00000000-0000-0000-0000-000000000000.json",
                  R"({"id": "user-11111111-1111-1111-1111-111111111111", "name": "Mismatch"})");
  test::writeFile(dir / "Presets" / "user-22222222-2222-2222-2222-222222222222.json",
                  R"({"id": "user-22222222-2222-2222-2222-222222222222", "name": "Repaired",
                      "adjustments": {"exposure": 99, "hsl": {"bands": []}}})");
  auto user = lib.userPresets();
  ASSERT_EQ(user.size(), 2u);
  EXPECT_EQ(user[1].name, "Repaired");
  EXPECT_EQ(user[1].adjustments.exposure, 5) << "decoded with the recipe's clamping";
  EXPECT_EQ(user[1].adjustments.hsl.bands.size(), 8u);

  test::writeFile(dir / "outside.json", R"({"id": "user-x", "name": "Outside"})");
  EXPECT_FALSE(lib.find("../outside"));
  EXPECT_FALSE(lib.remove("../outside"));
  EXPECT_TRUE(std::filesystem::exists(dir / "outside.json"));
}

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

LutLibrary::Validator fakeValidator() {
  return [](const std::filesystem::path& p) -> std::optional<std::string> {
    if (!std::filesystem::exists(p)) return "LUT 文件格式错误：无法读取文件";
    if (test::readFile(p).rfind("LUT_3D_SIZE", 0) == 0) return std::nullopt;
    return "LUT 文件格式错误：缺少有效的 LUT_3D_SIZE";
  };
}

TEST(LutLibrary, ImportValidatesCopiesAndNumbersClashes) {
  TempDir dir;
  LutLibrary lib(dir / "LUTs", fakeValidator());
  std::filesystem::create_directories(dir / "a");
  std::filesystem::create_directories(dir / "b");
  test::writeFile(dir / "a" / "look.cube", "LUT_3D_SIZE 2\n");
  test::writeFile(dir / "b" / "look.cube", "LUT_3D_SIZE 2\n# other\n");
  test::writeFile(dir / "bad.cube", "garbage");

  auto first = lib.import(dir / "a" / "look.cube");
  ASSERT_TRUE(first.entry) << first.error;
  EXPECT_EQ(first.entry->filename, "look.cube");
  EXPECT_EQ(first.entry->displayName, "look");
  auto second = lib.import(dir / "b" / "look.cube");
  ASSERT_TRUE(second.entry);
  EXPECT_EQ(second.entry->filename, "look-2.cube");
  EXPECT_EQ(test::readFile(dir / "LUTs" / "look.cube"), "LUT_3D_SIZE 2\n") << "never replaced";

  auto bad = lib.import(dir / "bad.cube");
  EXPECT_FALSE(bad.entry);
  EXPECT_EQ(bad.error, "LUT 文件格式错误：缺少有效的 LUT_3D_SIZE");
  EXPECT_FALSE(lib.import(dir / "missing.cube").entry);

  auto listed = lib.list();
  ASSERT_EQ(listed.size(), 2u) << "no temporary files are left behind";
  EXPECT_EQ(listed[0].filename, "look-2.cube");

  EXPECT_TRUE(lib.remove("look.cube"));
  EXPECT_FALSE(lib.remove("look.cube"));
  EXPECT_EQ(lib.list().size(), 1u);
}

TEST(LutLibrary, ResolvesOnlyFilesInsideTheFolder) {
  TempDir dir;
  LutLibrary lib(dir / "LUTs", fakeValidator());
  std::filesystem::create_directories(dir / "LUTs");
  test::writeFile(dir / "LUTs" / "ok.cube", "LUT_3D_SIZE 2\n");
  test::writeFile(dir / "secret.cube", "LUT_3D_SIZE 2\n");
  std::filesystem::create_symlink(dir / "secret.cube", dir / "LUTs" / "escape.cube");

  EXPECT_TRUE(lib.resolve("ok.cube"));
  for (const char* hostile : {"../secret.cube", "escape.cube", "..", ".", "", "/etc/passwd",
                              "sub/ok.cube", "missing.cube"}) {
    EXPECT_FALSE(lib.resolve(hostile)) << hostile;
  }
  EXPECT_FALSE(lib.remove("../secret.cube"));
  EXPECT_TRUE(std::filesystem::exists(dir / "secret.cube"));
}

}  // namespace
}  // namespace vg
