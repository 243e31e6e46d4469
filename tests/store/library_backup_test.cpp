#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>

#include "model/json.h"
#include "store/library_backup.h"
#include "store/library_restore.h"
#include "store/preset_library.h"
#include "store/sidecar_name.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

constexpr std::int64_t kBackupTime = 1'700'000'000;

// Every file and folder under `root` with its content ("<dir>" for folders,
// "-> target" for links), so a test can see that nothing else changed.
std::map<std::string, std::string> snapshot(const fs::path& root) {
  std::map<std::string, std::string> out;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    const std::string rel = fs::relative(it->path(), root).string();
    if (it->is_symlink()) out[rel] = "-> " + fs::read_symlink(it->path()).string();
    else if (it->is_directory()) out[rel] = "<dir>";
    else out[rel] = test::readFile(it->path());
  }
  return out;
}

void setMtime(const fs::path& file, std::int64_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

std::int64_t mtimeOf(const fs::path& file) {
  struct stat info {};
  ::stat(file.c_str(), &info);
  return info.st_mtim.tv_sec;
}

std::string recipeText(double exposure) {
  EditDocument doc;
  doc.adjustments.exposure = exposure;
  return encodeEditDocument(doc);
}

// A support folder with two sidecars, a preset and a LUT, all dated
// kBackupTime, and things that are not library files beside them.
struct Library {
  fs::path root;
  std::string edit1 = sidecarNames("/photos/one.jpg").current;
  std::string edit2 = sidecarNames("/photos/two.jpg").oldest;
  std::string presetFile;

  explicit Library(fs::path folder) : root(std::move(folder)) {
    fs::create_directories(root / "Edits");
    fs::create_directories(root / "LUTs");
    test::writeFile(root / "Edits" / edit1, recipeText(1));
    test::writeFile(root / "Edits" / edit2, recipeText(2));
    auto saved = PresetLibrary(root / "Presets").saveNew("午后暖光", {}, std::nullopt);
    presetFile = saved.preset->id + ".json";
    test::writeFile(root / "LUTs" / "look.cube", "LUT_3D_SIZE 2\n" + std::string(3000, '0'));
    for (const auto& file : {root / "Edits" / edit1, root / "Edits" / edit2, root / "Presets" / presetFile,
                             root / "LUTs" / "look.cube"}) {
      setMtime(file, kBackupTime);
    }
    // Not part of the library: a set-aside sidecar, a leftover temporary
    // file, a link and a stray file.
    test::writeFile(root / "Edits" / "edit-0123456789abcdef.corrupt-5.json", "[]");
    test::writeFile(root / "Edits" / ".x.json.tmp-abcdef", "{}");
    fs::create_symlink("/etc/hostname", root / "LUTs" / "link.cube");
    test::writeFile(root / "LUTs" / "notes.txt", "n");
  }
  std::vector<std::string> entries() const {
    return {"Edits/" + edit1, "Edits/" + edit2, "Presets/" + presetFile, "LUTs/look.cube"};
  }
};

std::vector<std::string> sorted(std::vector<std::string> v) {
  std::sort(v.begin(), v.end());
  return v;
}

TEST(LibraryBackup, RoundTripIntoAFreshFolder) {
  TempDir dir;
  Library library(dir / "old");
  const fs::path archive = dir / "backup.zip";
  test::writeFile(archive, "an older backup");
  auto backup = backupLibrary(library.root, archive);
  ASSERT_TRUE(backup.summary) << backup.error;
  EXPECT_EQ(backup.summary->text(), "已备份 2 个编辑、1 个预设、1 个 LUT");
  EXPECT_EQ(backup.summary->archiveBytes, fs::file_size(archive));
  std::vector<std::string> beside;
  for (const auto& e : fs::directory_iterator(dir.path())) beside.push_back(e.path().filename().string());
  EXPECT_EQ(sorted(beside), (std::vector<std::string>{"backup.zip", "old"})) << "no temporary file is left";

  const fs::path fresh = dir / "new";
  auto restored = restoreLibrary(archive, fresh);
  ASSERT_TRUE(restored.summary) << restored.error;
  EXPECT_EQ(sorted(restored.summary->added), sorted(library.entries()));
  EXPECT_TRUE(restored.summary->skipped.empty());
  for (const auto& entry : library.entries()) {
    EXPECT_EQ(test::readFile(fresh / entry), test::readFile(library.root / entry)) << entry;
    EXPECT_EQ(mtimeOf(fresh / entry), kBackupTime) << entry;
  }
  auto files = snapshot(fresh);
  EXPECT_EQ(files.size(), 3u + library.entries().size()) << "three folders and the library files, nothing else";
  EXPECT_EQ(PresetLibrary(fresh / "Presets").userPresets().at(0).name, "午后暖光");

  auto again = restoreLibrary(archive, fresh);
  ASSERT_TRUE(again.summary) << again.error;
  EXPECT_EQ(again.summary->unchanged.size(), 4u);
  EXPECT_EQ(again.summary->text(), "新增 0 个，更新 0 个，保留较新的本地文件 0 个，相同 4 个，跳过 0 个");
  EXPECT_EQ(snapshot(fresh), files);
}

TEST(LibraryBackup, FailureLeavesNothingAndLinksAreNotFollowed) {
  TempDir dir;
  Library library(dir / "lib");
  auto missingFolder = backupLibrary(library.root, dir / "no" / "backup.zip");
  EXPECT_FALSE(missingFolder.summary);
  EXPECT_EQ(missingFolder.error.rfind("无法备份资料库：backup.zip: ", 0), 0u) << missingFolder.error;

  // The archive is complete before it fails to take the place of a folder.
  fs::create_directory(dir / "taken.zip");
  auto blocked = backupLibrary(library.root, dir / "taken.zip");
  EXPECT_FALSE(blocked.summary);
  EXPECT_EQ(blocked.error.rfind("无法备份资料库：taken.zip: ", 0), 0u) << blocked.error;
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir.path())) names.push_back(e.path().filename().string());
  EXPECT_EQ(sorted(names), (std::vector<std::string>{"lib", "taken.zip"}));

  // Links and folders in the place of library files are not library files.
  fs::remove(library.root / "LUTs" / "look.cube");
  fs::create_directory(library.root / "LUTs" / "look.cube");
  fs::remove(library.root / "Edits" / library.edit2);
  fs::create_symlink(library.root / "Edits" / library.edit1, library.root / "Edits" / library.edit2);
  auto ok = backupLibrary(library.root, dir / "backup.zip");
  ASSERT_TRUE(ok.summary) << ok.error;
  EXPECT_EQ(ok.summary->text(), "已备份 1 个编辑、1 个预设、0 个 LUT");
}

TEST(LibraryRestore, NeverLosesANewerLocalFile) {
  TempDir dir;
  Library library(dir / "lib");
  const fs::path archive = dir / "backup.zip";
  ASSERT_TRUE(backupLibrary(library.root, archive).summary);

  // edit1 was edited after the backup; edit2 is older than the backup's copy;
  // the LUT changed in the same second the backup was made.
  const fs::path edit1 = library.root / "Edits" / library.edit1;
  const fs::path edit2 = library.root / "Edits" / library.edit2;
  const fs::path lut = library.root / "LUTs" / "look.cube";
  test::writeFile(edit1, recipeText(3));
  setMtime(edit1, kBackupTime + 100);
  test::writeFile(edit2, recipeText(4));
  setMtime(edit2, kBackupTime - 100);
  test::writeFile(lut, "LUT_3D_SIZE 2\nlocal");
  setMtime(lut, kBackupTime);
  fs::remove(library.root / "Presets" / library.presetFile);

  auto restored = restoreLibrary(archive, library.root);
  ASSERT_TRUE(restored.summary) << restored.error;
  EXPECT_EQ(restored.summary->kept, (std::vector<std::string>{"Edits/" + library.edit1, "LUTs/look.cube"}));
  EXPECT_EQ(restored.summary->updated, std::vector<std::string>{"Edits/" + library.edit2});
  EXPECT_EQ(restored.summary->added, std::vector<std::string>{"Presets/" + library.presetFile});
  EXPECT_EQ(test::readFile(edit1), recipeText(3));
  EXPECT_EQ(test::readFile(edit2), recipeText(2));
  EXPECT_EQ(test::readFile(lut), "LUT_3D_SIZE 2\nlocal");

  RestoreOptions replace;
  replace.replaceNewer = true;
  auto replaced = restoreLibrary(archive, library.root, replace);
  ASSERT_TRUE(replaced.summary) << replaced.error;
  EXPECT_EQ(replaced.summary->updated.size(), 2u);
  EXPECT_EQ(test::readFile(edit1), recipeText(1));
}

// Writes a tar (or zip) archive entry by entry.
class ArchiveBuilder {
 public:
  ArchiveBuilder(const fs::path& file, bool zip = false) : a_(archive_write_new()) {
    zip ? archive_write_set_format_zip(a_) : archive_write_set_format_pax_restricted(a_);
    archive_write_open_filename(a_, file.c_str());
  }
  ~ArchiveBuilder() { close(); }
  ArchiveBuilder& add(const std::string& path, const std::string& data, int type = AE_IFREG,
                      const std::string& link = {}, bool hardlink = false) {
    archive_entry* e = archive_entry_new();
    archive_entry_set_pathname(e, path.c_str());
    archive_entry_set_filetype(e, unsigned(type));
    archive_entry_set_perm(e, 0644);
    archive_entry_set_mtime(e, kBackupTime, 0);
    if (hardlink) archive_entry_set_hardlink(e, link.c_str());
    else if (!link.empty()) archive_entry_set_symlink(e, link.c_str());
    if (type == AE_IFREG && !hardlink) archive_entry_set_size(e, la_int64_t(data.size()));
    if (type == AE_IFCHR) archive_entry_set_rdev(e, makedev(1, 3));
    EXPECT_EQ(archive_write_header(a_, e), ARCHIVE_OK) << archive_error_string(a_);
    if (!data.empty()) archive_write_data(a_, data.data(), data.size());
    archive_entry_free(e);
    return *this;
  }
  void close() {
    if (!a_) return;
    archive_write_close(a_);
    archive_write_free(a_);
    a_ = nullptr;
  }

 private:
  archive* a_;
};

// One ustar header for "LUTs/huge.cube" claiming 10 GB (base-256 size field),
// followed by a little data and no end: the reader must refuse on the claim.
std::string tenGigabyteClaim() {
  std::string header(512, '\0');
  std::memcpy(header.data(), "LUTs/huge.cube", 14);
  std::memcpy(header.data() + 100, "0000644", 7);
  std::memcpy(header.data() + 108, "0000000", 7);
  std::memcpy(header.data() + 116, "0000000", 7);
  const std::uint64_t size = 10ull << 30;
  header[124] = char(0x80);
  for (int i = 0; i < 8; ++i) header[size_t(135 - i)] = char((size >> (8 * i)) & 0xff);
  std::memcpy(header.data() + 136, "14524770400", 11);
  header[156] = '0';
  std::memcpy(header.data() + 257, "ustar", 6);
  std::memcpy(header.data() + 263, "00", 2);
  std::memset(header.data() + 148, ' ', 8);
  unsigned sum = 0;
  for (unsigned char c : header) sum += c;
  std::snprintf(header.data() + 148, 8, "%06o", sum);
  return header + std::string(4096, '0');
}

TEST(LibraryRestore, HostileArchivesAreRefusedAndChangeNothing) {
  TempDir dir;
  const fs::path support = dir / "support";
  Library library(support);
  const std::string sidecar = "edit-" + std::string(32, 'a') + ".json";
  const std::string good = "Edits/" + sidecar;
  RestoreOptions small;
  small.maxEntries = 50;
  small.maxTotalBytes = 1000;

  struct Case {
    std::string name;
    std::function<void(const fs::path&)> build;
    std::string refusal;
    RestoreOptions options = {};
  };
  const std::vector<Case> cases = {
      {"traversal", [&](const fs::path& f) { ArchiveBuilder(f).add(good, "{}").add("Edits/../../evil.json", "{}"); },
       "条目路径不安全：Edits/../../evil.json"},
      {"backslash traversal", [&](const fs::path& f) { ArchiveBuilder(f, true).add("LUTs\\..\\..\\x.cube", "x"); },
       "条目路径不安全：LUTs"},
      {"absolute", [&](const fs::path& f) { ArchiveBuilder(f).add((dir / "abs" / good).string(), "{}"); },
       "条目路径不安全：" + (dir / "abs" / good).string()},
      {"symlink", [&](const fs::path& f) { ArchiveBuilder(f, true).add("LUTs/a.cube", "", AE_IFLNK, "/etc/passwd"); },
       "条目是链接：LUTs/a.cube"},
      {"hard link", [&](const fs::path& f) { ArchiveBuilder(f).add(good, "{}").add("LUTs/b.cube", "", AE_IFREG, good, true); },
       "条目是链接：LUTs/b.cube"},
      {"device", [&](const fs::path& f) { ArchiveBuilder(f).add("LUTs/null.cube", "", AE_IFCHR); },
       "条目不是普通文件：LUTs/null.cube"},
      {"ten gigabytes", [&](const fs::path& f) { test::writeFile(f, tenGigabyteClaim()); },
       "条目过大：LUTs/huge.cube"},
      {"many entries",
       [&](const fs::path& f) {
         ArchiveBuilder b(f);
         for (int i = 0; i < 51; ++i) b.add("junk/" + std::to_string(i), "");
       },
       "条目数量超过上限（50 个）", small},
      {"too much data",
       [&](const fs::path& f) {
         ArchiveBuilder(f).add(good, "{" + std::string(600, ' ') + "}").add("Edits/edit-" + std::string(32, 'b') + ".json",
                                                                          "{" + std::string(600, ' ') + "}");
       },
       "备份内容总量超过上限", small},
      {"oversized preset",
       [&](const fs::path& f) {
         ArchiveBuilder(f).add("Presets/user-00000000-0000-0000-0000-000000000001.json",
                               std::string(PresetLibrary::kMaxFileBytes + 1, ' '));
       },
       "条目过大：Presets/user-00000000-0000-0000-0000-000000000001.json"},
      {"newer format", [&](const fs::path& f) { ArchiveBuilder(f, true).add("verdantglass-library.json", R"({"version":2})"); },
       "备份由更新版本的 Verdantglass 创建"},
      {"not a backup", [&](const fs::path& f) { ArchiveBuilder(f, true).add("holiday/IMG_1.jpg", "jpeg"); },
       "这不是 Verdantglass 资料库备份"},
  };
  for (const auto& c : cases) {
    const fs::path archive = dir / ("case-" + std::to_string(&c - cases.data()));
    c.build(archive);
    const auto before = snapshot(dir.path());
    const auto result = restoreLibrary(archive, support, c.options);
    EXPECT_FALSE(result.summary) << c.name;
    EXPECT_EQ(result.error.rfind("无法恢复备份：" + c.refusal, 0), 0u) << c.name << ": " << result.error;
    EXPECT_EQ(snapshot(dir.path()), before) << c.name;
  }

  for (const std::string& bytes : {std::string(), std::string("PK\x03\x04 truncated"), std::string(10000, 'x')}) {
    const auto result = restoreLibraryFromMemory(bytes, support);
    EXPECT_FALSE(result.summary);
    EXPECT_EQ(result.error.rfind("无法恢复备份：", 0), 0u) << result.error;
  }
  EXPECT_FALSE(fs::exists(dir / "evil.json"));
  EXPECT_FALSE(fs::exists(dir / "abs"));
}

TEST(LibraryRestore, SkipsWhatIsNotALibraryFile) {
  TempDir dir;
  const fs::path archive = dir / "mixed.zip";
  const std::string edit = "edit-" + std::string(32, 'c') + ".json";
  ArchiveBuilder(archive, true)
      .add("verdantglass-library.json", R"({"format":"verdantglass-library","version":1})")
      .add("./Edits/", "", AE_IFDIR)
      .add("./Edits/" + edit, recipeText(1))
      .add("Edits/" + edit, recipeText(2))
      .add("Edits/edit-" + std::string(32, 'd') + ".json", "[not a recipe")
      .add("Edits/photo.jpg", "jpeg")
      .add("Presets/user-00000000-0000-0000-0000-000000000002.json", R"({"id":"user-other"})")
      .add("LUTs/bad.cube", "garbage")
      .add("Other/x.cube", "x");
  RestoreOptions options;
  options.lutCheck = [](const fs::path& p) -> std::optional<std::string> {
    if (test::readFile(p) == "garbage") return "LUT 文件格式错误：缺少有效的 LUT_3D_SIZE";
    return std::nullopt;
  };
  auto result = restoreLibrary(archive, dir / "support", options);
  ASSERT_TRUE(result.summary) << result.error;
  EXPECT_EQ(result.summary->added, std::vector<std::string>{"Edits/" + edit});
  EXPECT_EQ(test::readFile(dir / "support" / "Edits" / edit), recipeText(1)) << "the first of two entries wins";
  EXPECT_EQ(result.summary->skipped,
            (std::vector<RestoreSummary::Skipped>{
                {"Edits/" + edit, "重复条目"},
                {"Edits/edit-" + std::string(32, 'd') + ".json", "已损坏：不是有效的编辑记录"},
                {"Edits/photo.jpg", "不属于资料库"},
                {"Presets/user-00000000-0000-0000-0000-000000000002.json", "已损坏：缺少有效的预设 id"},
                {"LUTs/bad.cube", "LUT 文件格式错误：缺少有效的 LUT_3D_SIZE"},
                {"Other/x.cube", "不属于资料库"}}));
  EXPECT_EQ(snapshot(dir / "support").size(), 2u) << "Edits and its one file";
}

}  // namespace
}  // namespace vg
