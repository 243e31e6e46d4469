#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

#include "cli/command.h"
#include "store/filter_preset.h"
#include "store/preset_library.h"
#include "store/support_folder.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

TEST(PresetsCommand, ListsBuiltInsThenUserPresets) {
  // The test binary points the support folder at a scratch folder.
  PresetLibrary library(supportFolder() / "Presets");
  auto saved = library.saveNew("我的", {}, std::nullopt);
  ASSERT_TRUE(saved.preset);

  std::vector<std::string> args{"presets"};
  std::istringstream in;
  std::ostringstream out, err;
  ASSERT_EQ(runCli(args, {in, out, err}), kExitOk) << err.str();
  library.remove(saved.preset->id);

  auto list = nlohmann::json::parse(out.str());
  ASSERT_TRUE(list.is_array());
  ASSERT_EQ(list.size(), builtInPresets().size() + 1);
  EXPECT_EQ(list[0]["id"], builtInPresets()[0].id);
  EXPECT_EQ(list[0]["name"], builtInPresets()[0].name);
  EXPECT_EQ(list.back()["name"], "我的");
  EXPECT_EQ(list.back().size(), 2u) << "only id and name";
}

}  // namespace
}  // namespace vg::cli
