#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>

#include "cli/command.h"
#include "store/filter_preset.h"
#include "store/preset_library.h"
#include "support/test_support.h"

namespace vg::cli {
namespace {

TEST(PresetsCommand, ListsBuiltInsThenUserPresets) {
  test::TempDir dir;
  ::setenv("VERDANTGLASS_DATA_DIR", dir.path().c_str(), 1);
  PresetLibrary(dir / "Presets").saveNew("我的", {}, std::nullopt);

  std::vector<std::string> args{"presets"};
  std::istringstream in;
  std::ostringstream out, err;
  ASSERT_EQ(runCli(args, {in, out, err}), kExitOk) << err.str();
  ::unsetenv("VERDANTGLASS_DATA_DIR");

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
