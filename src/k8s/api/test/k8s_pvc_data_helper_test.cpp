#include "k8s/api/k8s_pvc_data_helper.h"

#include <fstream>

#include "support/temp_dir.h"

namespace {

using test_support::Temp_Dir;

TEST(Storage_Class_Types, HaveNames) {
  EXPECT_STREQ(Storage_Class_Config::get_sc_type_name(SC_TYPE_LOCAL), "local");
  EXPECT_STREQ(Storage_Class_Config::get_sc_type_name(SC_TYPE_CSI), "csi");
  EXPECT_STREQ(Storage_Class_Config::get_sc_type_name(SC_TYPE_NFS), "nfs");
  EXPECT_EQ(Storage_Class_Config::get_sc_type_name(SC_TYPE_UNKNOWN), nullptr);
  EXPECT_EQ(Storage_Class_Config::get_sc_type_name(static_cast<Storage_Class_Type>(3)), nullptr);
}

TEST(Storage_Class_Types, AreFoundByTheirExactName) {
  EXPECT_EQ(Storage_Class_Config::get_sc_type("local"), SC_TYPE_LOCAL);
  EXPECT_EQ(Storage_Class_Config::get_sc_type("csi"), SC_TYPE_CSI);
  EXPECT_EQ(Storage_Class_Config::get_sc_type("nfs"), SC_TYPE_NFS);
  for (const char* name : {static_cast<const char*>(nullptr), "", "CSI", "csi ", "cs"})
    EXPECT_EQ(Storage_Class_Config::get_sc_type(name), SC_TYPE_UNKNOWN) << (name ? name : "null");
}

TEST(Storage_Class_Types, StandInATableThatEndsInTheUnknownOne) {
  const auto& table = Storage_Class_Config::sc_type_name_table;
  ASSERT_EQ(std::size(table), 4u);
  EXPECT_STREQ(table[0].key, "local");
  EXPECT_STREQ(table[1].key, "csi");
  EXPECT_STREQ(table[2].key, "nfs");
  EXPECT_EQ(table[1].len, 3u);
  EXPECT_EQ(table[3].key, nullptr);
  EXPECT_EQ(table[3].len, 0u);
  EXPECT_EQ(table[3].value, SC_TYPE_UNKNOWN);
}

TEST(Glob_Path, BecomesTheFirstMatch) {
  Temp_Dir dir;
  for (const char* name : {"b", "a", "c"}) std::ofstream(dir / name);
  std::string path = dir / "[a-z]";
  EXPECT_TRUE(glob_path(path));
  EXPECT_EQ(path, dir / "a");
}

TEST(Glob_Path, OfAPlainPathThatIsThereStays) {
  Temp_Dir dir;
  std::string path = dir.path();
  EXPECT_TRUE(glob_path(path));
  EXPECT_EQ(path, dir.path());
}

TEST(Glob_Path, WithoutAMatchBecomesEmpty) {
  Temp_Dir dir;
  std::string path = dir / "*";
  EXPECT_FALSE(glob_path(path));
  EXPECT_EQ(path, "");
  EXPECT_FALSE(glob_path(path));
  EXPECT_EQ(path, "");
}

}  // namespace
