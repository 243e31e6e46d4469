#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "cli/cli_run.h"
#include "model/json.h"
#include "store/sidecar_name.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

using LibraryCommand = ScratchSupportTest;

std::string recipe(double exposure) {
  EditDocument doc;
  doc.adjustments.exposure = exposure;
  return encodeEditDocument(doc);
}

void setMtime(const fs::path& file, std::int64_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ::utimensat(AT_FDCWD, file.c_str(), times, 0);
}

TEST_F(LibraryCommand, BackupThenRestoreKeepsNewerLocalEditsUnlessAsked) {
  const std::string sidecar = sidecarNames("/photos/a.jpg").current;
  const fs::path edit = support / "Edits" / sidecar;
  fs::create_directories(edit.parent_path());
  test::writeFile(edit, recipe(1));
  setMtime(edit, 1'700'000'000);
  ASSERT_EQ(runTool({"presets", "save", "午后暖光"}, "{}").code, kExitOk);

  const fs::path archive = dir / "backup.zip";
  const auto backup = runTool({"library", "backup", archive.string()});
  ASSERT_EQ(backup.code, kExitOk) << backup.err;
  const auto counts = nlohmann::json::parse(backup.out);
  EXPECT_EQ(counts["edits"], 1);
  EXPECT_EQ(counts["presets"], 1);
  EXPECT_EQ(counts["bytes"], fs::file_size(archive));
  EXPECT_EQ(backup.err, "已备份 1 个编辑、1 个预设、0 个 LUT\n");

  test::writeFile(edit, recipe(2));  // edited after the backup: newer
  const auto restore = runTool({"library", "restore", archive.string()});
  ASSERT_EQ(restore.code, kExitOk) << restore.err;
  const auto summary = nlohmann::json::parse(restore.out);
  EXPECT_EQ(summary["kept"], nlohmann::json({"Edits/" + sidecar}));
  EXPECT_EQ(summary["unchanged"].size(), 1u);
  EXPECT_EQ(restore.err,
            "新增 0 个，更新 0 个，保留较新的本地文件 1 个，相同 1 个，跳过 0 个\n"
            "本地较新的文件已保留；要用备份中的版本替换它们，请加 --replace-newer\n");
  EXPECT_EQ(test::readFile(edit), recipe(2));

  const auto replace = runTool({"library", "restore", archive.string(), "--replace-newer"});
  ASSERT_EQ(replace.code, kExitOk) << replace.err;
  EXPECT_EQ(nlohmann::json::parse(replace.out)["updated"], nlohmann::json({"Edits/" + sidecar}));
  EXPECT_EQ(test::readFile(edit), recipe(1));

  test::writeFile(dir / "photo.zip", "not an archive at all");
  const auto refused = runTool({"library", "restore", (dir / "photo.zip").string()});
  EXPECT_EQ(refused.code, kExitFailed);
  EXPECT_EQ(refused.err.rfind("无法恢复备份：", 0), 0u) << refused.err;
  EXPECT_TRUE(refused.out.empty());
  EXPECT_EQ(runTool({"library", "backup"}).code, kExitUsage);
}

}  // namespace
}  // namespace vg::cli
