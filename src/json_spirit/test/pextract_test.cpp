#include <gtest/gtest.h>

#include "json_spirit/extract.h"

namespace json_spirit {
namespace {

class Pextract : public testing::Test {
 protected:
  Value doc_ = Object{
      {"kind", "PersistentVolumeClaim"},
      {"apiVersion", "v1"},
      {"metadata", Object{{"name", "data-0"}, {"namespace", "shop"}, {"labels", Object{{"app", "web"}}}}},
      {"spec", Object{{"storageClassName", "fast"}, {"volumeMode", "Filesystem"}, {"count", 65537}}},
      {"items", Array{1, "two"}},
  };
  const Value& read_ = doc_;
};

TEST_F(Pextract, ReadsAClaimInOneChain) {
  std::string kind, version, name, space, storage_class, mode;
  pextract(read_)("/kind", kind)("/apiVersion", version)
      .chroot("/metadata")("/name", name)("/namespace", space)
      .chroot_abs("/spec")("/storageClassName", storage_class)("/volumeMode", mode);
  EXPECT_EQ("PersistentVolumeClaim", kind);
  EXPECT_EQ("v1", version);
  EXPECT_EQ("data-0", name);
  EXPECT_EQ("shop", space);
  EXPECT_EQ("fast", storage_class);
  EXPECT_EQ("Filesystem", mode);
}

TEST_F(Pextract, EveryKindOfDocumentCanBeRead) {
  std::string name;
  const String_type* text = nullptr;
  String_type* changeable = nullptr;
  pextract(doc_)("/metadata/name", changeable)("/metadata/name", text);
  EXPECT_EQ(text, changeable);
  pextract(doc_.get_obj()).chroot("/metadata")("/name", changeable);
  EXPECT_EQ(text, changeable);
  pextract(read_.get_obj()).chroot("/metadata")("/name", text)("/name", name);
  EXPECT_EQ(changeable, text);
  EXPECT_EQ("data-0", name);
}

TEST_F(Pextract, IntegersAreReadByTheirLowBits) {
  unsigned short small = 0;
  pextract(read_)("/spec/count", small);
  EXPECT_EQ(1, small);
}

TEST_F(Pextract, AMissLeavesEveryDestinationAlone) {
  const String_type elsewhere;
  const String_type* text = &elsewhere;
  std::string name = "default";
  int number = 7;
  pextract(read_)("/none", text)("/items", text)("/none", name)("/items", name)("/kind", number);
  EXPECT_EQ(&elsewhere, text);
  EXPECT_EQ("default", name);
  EXPECT_EQ(7, number);
}

TEST_F(Pextract, AFailedChrootBreaksTheChainUntilChrootAbs) {
  std::string name = "before", mode;
  pextract(read_).chroot("/status")("/name", name)("/kind", name).chroot_abs("/spec")("/volumeMode", mode);
  EXPECT_EQ("before", name);
  EXPECT_EQ("Filesystem", mode);
}

TEST_F(Pextract, AChrootOnABrokenChainStaysBroken) {
  std::string name = "before";
  pextract(read_).chroot("/none").chroot("/metadata")("/name", name);
  EXPECT_EQ("before", name);
}

TEST_F(Pextract, NoChrootMendsABrokenChain) {
  std::string kind;
  pextract(read_).chroot("/none").no_chroot()("/kind", kind);
  EXPECT_EQ("PersistentVolumeClaim", kind);
}

TEST_F(Pextract, ChrootsJoinTheirPaths) {
  std::string app;
  pextract(read_).chroot("/metadata").chroot("/labels")("/app", app);
  EXPECT_EQ("web", app);
}

TEST_F(Pextract, AFailedChrootOnAGoodRootBreaksTheChainToo) {
  std::string name = "before";
  pextract(read_).chroot("/metadata").chroot("/none")("/name", name);
  EXPECT_EQ("before", name);
}

TEST_F(Pextract, AFailedChrootAbsBreaksTheChain) {
  std::string name = "before", kind;
  pextract(read_).chroot("/metadata").chroot_abs("/none")("/name", name).no_chroot()("/kind", kind);
  EXPECT_EQ("before", name);
  EXPECT_EQ("PersistentVolumeClaim", kind);
}

TEST_F(Pextract, NoChrootGoesBackToTheDocument) {
  std::string kind;
  pextract(read_).chroot("/metadata").no_chroot()("/kind", kind);
  EXPECT_EQ("PersistentVolumeClaim", kind);
}

TEST_F(Pextract, TheRootMayBeOfAnyKind) {
  std::string two, none = "before";
  pextract(read_).chroot("/items")("/1", two).chroot("/0")("/x", none).chroot_abs("/kind")("/x", none);
  EXPECT_EQ("two", two);
  EXPECT_EQ("before", none);
}

/// The text of the exception that @a read throws.
template <typename Read>
std::string fault_of(Read read) {
  try {
    read();
  } catch (const std::domain_error& fault) {
    return fault.what();
  }
  return "(none)";
}

TEST_F(Pextract, ARequiredMissThrowsWithTheAbsolutePath) {
  std::string text = "before";
  EXPECT_EQ("JSON Pointer path '/metadata/uid' not exist in JSON!",
            fault_of([&] { pextract(read_).throwable(true).chroot("/metadata")("/uid", text); }));
  EXPECT_EQ("JSON Pointer path '/metadata/labels/x' not exist in JSON!",
            fault_of([&] { pextract(read_).flags(FG_THROW).chroot("/metadata").chroot("/labels")("/x", text); }));
  EXPECT_EQ("JSON Pointer path '/none' not exist in JSON!",
            fault_of([&] { pextract(read_)("/none", text, FG_THROW); }));
  EXPECT_EQ("JSON Pointer path '/spec' not exist in JSON!",
            fault_of([&] { pextract(read_)("/spec", text, FG_THROW); }));
  EXPECT_EQ("before", text);
}

TEST_F(Pextract, ARequiredChrootThrows) {
  EXPECT_EQ("JSON Pointer path '/none' not exist in JSON!", fault_of([&] { pextract(read_).chroot("/none", true); }));
  EXPECT_EQ("JSON Pointer path '/none' not exist in JSON!",
            fault_of([&] { pextract(read_).chroot("/spec").chroot_abs("/none", FG_THROW); }));
  EXPECT_EQ("JSON Pointer path '/spec/none' not exist in JSON!",
            fault_of([&] { pextract(read_).chroot("/spec").chroot("/none", true); }));
  EXPECT_EQ("(none)",
            fault_of([&] { pextract(read_).throwable(true).chroot("/none", false).chroot_abs("/none", false); }));
}

TEST_F(Pextract, ARequiredReadInABrokenChainThrows) {
  std::string text;
  EXPECT_EQ("JSON Pointer path '/kind' not exist in JSON!",
            fault_of([&] { pextract(read_).chroot("/none")("/kind", text, FG_THROW); }));
  EXPECT_EQ("JSON Pointer path '/metadata/name' not exist in JSON!",
            fault_of([&] { pextract(read_).chroot("/metadata").chroot("/none")("/name", text, FG_THROW); }));
  EXPECT_EQ("JSON Pointer path '/metadata' not exist in JSON!",
            fault_of([&] { pextract(read_).chroot("/none").chroot("/metadata", FG_THROW); }));
}

TEST_F(Pextract, AFunctionIsCalledWithTheValue) {
  int calls = 0;
  const auto count = [&](const Value&) { ++calls; };
  pextract(read_)("/kind", count)("/none", count).chroot("/none")("/kind", count);
  EXPECT_EQ(1, calls);
}

TEST_F(Pextract, AContainerTakesTheElementsOfItsKind) {
  std::vector<std::string> texts;
  pextract(read_)("/items", texts)("/none", texts);
  EXPECT_EQ((std::vector<std::string>{"two"}), texts);
}

}  // namespace
}  // namespace json_spirit
