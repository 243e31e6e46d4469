#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "cli/cli_run.h"
#include "cli/command.h"
#include "model/json.h"
#include "store/edit_store.h"
#include "store/sidecar_name.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

namespace fs = std::filesystem;

// The application's store resolves its folder once, on first use: point it at
// a scratch folder before any test of this binary runs.
class ScratchDataFolder : public ::testing::Environment {
 public:
  void SetUp() override {
    dir_ = std::make_unique<test::TempDir>();
    ::setenv("VERDANTGLASS_DATA_DIR", dir_->path().c_str(), 1);
  }
  void TearDown() override { dir_.reset(); }

 private:
  std::unique_ptr<test::TempDir> dir_;
};
[[maybe_unused]] auto* const gScratch = ::testing::AddGlobalTestEnvironment(new ScratchDataFolder);

using Run = CliRun;
Run run(std::vector<std::string> args, const std::string& input = {}) { return runTool(std::move(args), input); }

fs::path editsFolder() { return fs::path(std::getenv("VERDANTGLASS_DATA_DIR")) / "Edits"; }

TEST(SidecarCommands, PathNamesTheCurrentSidecarInTheEditsFolder) {
  const auto r = run({"sidecar", "path", "/photos/./trip/../IMG_1.jpg"});
  EXPECT_EQ(r.code, kExitOk) << r.err;
  EXPECT_EQ(r.out, (editsFolder() / sidecarNames("/photos/IMG_1.jpg").current).string() + "\n");

  test::TempDir dir;
  fs::create_directories(editsFolder());
  const SidecarNames names = sidecarNames(dir / "a.jpg");
  test::writeFile(editsFolder() / names.oldest, "{}");
  const auto all = run({"sidecar", "path", "--all", (dir / "a.jpg").string()});
  EXPECT_EQ(all.code, kExitOk);
  // Without links, the older name is the current one and is listed once more.
  EXPECT_EQ(all.out, "current\t" + (editsFolder() / names.current).string() + "\n" +
                         "older\t" + (editsFolder() / names.older).string() + "\n" +
                         "oldest\t" + (editsFolder() / names.oldest).string() + "\texists\n");
  fs::remove(editsFolder() / names.oldest);
}

TEST(SidecarCommands, ShowPrintsTheSavedRecipeOrFails) {
  test::TempDir dir;
  const fs::path image = dir / "photo.jpg";
  const auto none = run({"sidecar", "show", image.string()});
  EXPECT_EQ(none.code, kExitFailed);
  EXPECT_TRUE(none.out.empty());
  EXPECT_NE(none.err.find("no saved edits"), std::string::npos);

  EditDocument doc;
  doc.filterID = "鲜艳";
  doc.filterStrength = 35;
  ASSERT_TRUE(EditStore::shared().save(doc, image).get());

  const auto shown = run({"sidecar", "show", image.string()});
  EXPECT_EQ(shown.code, kExitOk) << shown.err;
  EXPECT_EQ(decodeEditDocument(std::string_view(shown.out)), doc);
  EXPECT_NE(shown.out.find("\n  \"adjustments\""), std::string::npos) << "indented for reading";

  const auto compact = run({"sidecar", "show", "--compact", image.string()});
  EXPECT_EQ(compact.out, encodeEditDocument(doc) + "\n");
  EXPECT_EQ(loadSavedRecipe(image), doc);

  EXPECT_EQ(run({"sidecar", "show"}).code, kExitUsage);
  EXPECT_EQ(run({"sidecar", "show", ""}).code, kExitUsage);
  EXPECT_EQ(run({"sidecar", "path", ""}).code, kExitUsage);
}

}  // namespace
}  // namespace vg::cli
