// The pieces of "sc check" that need no cluster.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <sstream>

#include "ctl/failure.h"
#include "ctl/interrupt.h"
#include "ctl/stage_view.h"
#include "ctl/storage_class_file.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;
using test_support::Temp_Dir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class Storage_Class_File : public ::testing::Test {
 protected:
  Storage_Classes read(const std::string& text) { return read_storage_classes(dir.write("classes", text), notes); }
  /// The message of what is thrown; empty if nothing is.
  std::string failure(const std::string& file) {
    try {
      read_storage_classes(file, notes);
    } catch (const Failure& e) {
      EXPECT_EQ(e.code(), exit_usage);
      return e.what();
    }
    return "";
  }

  const Temp_Dir dir;
  std::ostringstream notes;
};

TEST_F(Storage_Class_File, Classes_are_named_by_type) {
  const Storage_Classes classes = read(R"({"csi": ["a", "b"], "local": ["c"], "nfs": ["d"]})");
  EXPECT_THAT(classes.csi, UnorderedElementsAre(Pair("a", CAPABILITY_NONE), Pair("b", CAPABILITY_NONE)));
  EXPECT_THAT(classes.local, ElementsAre(Pair("c", CAPABILITY_NONE)));
  EXPECT_THAT(classes.nfs, ElementsAre(Pair("d", CAPABILITY_NONE)));
  EXPECT_THAT(notes.str(), IsEmpty());
}

TEST_F(Storage_Class_File, What_is_passed_over_is_told) {
  EXPECT_THAT(read(R"({"CSI": ["a"]})").csi, IsEmpty());
  EXPECT_THAT(notes.str(), HasSubstr("'CSI' is none of csi, local and nfs"));
  EXPECT_THAT(notes.str(), HasSubstr("none is tried out"));
  notes.str("");
  EXPECT_EQ(read(R"({"csi": [1, "a"]})").csi.size(), 1u);
  EXPECT_THAT(notes.str(), HasSubstr("Something under 'csi' is no name"));
}

TEST_F(Storage_Class_File, File_that_the_agent_would_refuse_is_wrong_usage) {
  EXPECT_EQ(failure("/nowhere"), "'/nowhere' cannot be read. --file FILE names another one.");
  EXPECT_THAT(failure(dir.write("a", "[]")), HasSubstr("holds no JSON object"));
  EXPECT_THAT(failure(dir.write("b", "{")), HasSubstr("holds no JSON object"));
  EXPECT_THAT(failure(dir.write("c", R"({"csi": {"a": {}}})")), HasSubstr("'csi' is no array"));
  EXPECT_THAT(failure(dir.write("d", R"({"other": 1})")), HasSubstr("'other' is no array"));
}

Storage_Class_Capability_Validation_Unit unit_of(const char* claim, bool bound) {
  Storage_Class_Capability_Validation_Unit unit("gold", false);
  unit.sc_exist_on_system_ = true;
  unit.pvc_.name_ = claim;
  unit.pvc_.bound_ = bound;
  return unit;
}

TEST(Stages, Object_goes_from_nothing_over_pending_to_its_goal_and_away) {
  EXPECT_THAT(stages_of({unit_of("", false)}, false), ElementsAre(Stage{"gold", "", "", ""}));
  EXPECT_THAT(stages_of({unit_of("a", false)}, false), ElementsAre(Stage{"gold", "pending", "", ""}));
  auto unit = unit_of("a", true);
  unit.pvc_clone_.name_ = "a-clone";
  unit.pvc_snap_.name_ = "a-snap";
  unit.pvc_snap_.ready_to_use_ = true;
  EXPECT_THAT(stages_of({unit}, false), ElementsAre(Stage{"gold", "bound", "pending", "ready"}));
  unit.pvc_.deleted_ = true;
  EXPECT_THAT(stages_of({unit}, true), ElementsAre(Stage{"gold", "removed", "removing", "removing"}));
}

TEST(Stages, Class_that_the_cluster_does_not_have_is_told) {
  EXPECT_THAT(stages_of({Storage_Class_Capability_Validation_Unit("gold", false)}, false),
              ElementsAre(Stage{"gold", "not in the cluster", "", ""}));
}

TEST(Stage_View, Lines_tell_each_change_once) {
  std::ostringstream out;
  Stage_View view(out, Progress_View::lines, {80, 24});
  view.show("Making", "0:00", {{"gold", "", "", ""}, {"tin", "not in the cluster", "", ""}});
  view.show("Making", "0:01", {{"gold", "pending", "pending", ""}, {"tin", "not in the cluster", "", ""}});
  view.show("Making", "0:02", {{"gold", "pending", "pending", ""}, {"tin", "not in the cluster", "", ""}});
  view.show("Snapshots", "0:03", {{"gold", "bound", "bound", "pending"}, {"tin", "not in the cluster", "", ""}});
  EXPECT_EQ(out.str(),
            "Making\n"
            "tin: not in the cluster\n"
            "gold: claim pending, clone pending\n"
            "Snapshots\n"
            "gold: claim bound, clone bound, snapshot pending\n");
}

TEST(Stage_View, Table_is_drawn_again_in_its_place_and_taken_away) {
  std::ostringstream out;
  {
    Stage_View view(out, Progress_View::bar, {80, 24});
    view.show("Making", "0:00", {{"gold", "pending", "", ""}});
    EXPECT_EQ(out.str(), "Making  0:00\nCLASS  CLAIM    CLONE  SNAPSHOT\ngold   pending  -      -\n");
    out.str("");
    view.show("Making", "0:01", {{"gold", "bound", "", ""}});
    EXPECT_EQ(out.str(), "\r\033[3A\033[JMaking  0:01\nCLASS  CLAIM  CLONE  SNAPSHOT\ngold   bound  -      -\n");
    out.str("");
  }
  EXPECT_EQ(out.str(), "\r\033[3A\033[J");
}

TEST(Stage_View, Table_that_is_kept_stays_above_the_next_one) {
  std::ostringstream out;
  Stage_View view(out, Progress_View::bar, {80, 24});
  view.show("Making", "0:00", {});
  view.keep();
  out.str("");
  view.show("Removing", "0:01", {});
  EXPECT_EQ(out.str(), "Removing  0:01\nCLASS  CLAIM  CLONE  SNAPSHOT\n");
}

TEST(Stage_View, Lines_of_the_table_are_no_longer_than_those_of_the_terminal) {
  std::ostringstream out;
  Stage_View view(out, Progress_View::bar, {10, 24});
  view.show("Making claims", "0:00", {{"a-long-name", "bound", "", ""}});
  EXPECT_EQ(out.str(), "Making cl\nCLASS    \na-long-na\n");
}

TEST(Stage_View, Table_that_is_higher_than_the_terminal_is_shown_as_lines) {
  std::ostringstream out;
  Stage_View view(out, Progress_View::bar, {80, 4});
  view.show("Making", "0:00", {{"a", "bound", "", ""}, {"b", "bound", "", ""}});
  EXPECT_EQ(out.str(), "Making\na: claim bound\nb: claim bound\n");
}

TEST(Stage_View, Silence_is_silence) {
  std::ostringstream out;
  {
    Stage_View view(out, Progress_View::silent, {80, 24});
    view.show("Making", "0:00", {{"a", "bound", "", ""}});
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Interrupt, Signals_are_counted_and_end_nothing) {
  const Interrupt interrupt;
  EXPECT_EQ(interrupt.count(), 0);
  raise(SIGINT);
  raise(SIGTERM);
  EXPECT_EQ(interrupt.count(), 2);
}

TEST(InterruptDeathTest, Second_signal_ends_a_program_that_has_an_answer_to_it) {
  const auto interrupt_twice = [](int signal) {
    Interrupt interrupt;
    interrupt.answer("first\n", "second\n");
    raise(signal);
    if (interrupt.count() == 1) raise(signal);
  };
  EXPECT_EXIT(interrupt_twice(SIGINT), ::testing::ExitedWithCode(exit_interrupted), "first\nsecond\n");
  EXPECT_EXIT(interrupt_twice(SIGTERM), ::testing::ExitedWithCode(exit_interrupted), "first\nsecond\n");
}

}  // namespace
