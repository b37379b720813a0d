#include "json_rpc/json_rpc_method.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/test/recording_channel.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;

extern "C" ACE_Service_Object* _make_JSON_RPC_Method(ACE_Service_Object_Exterminator* gobbler);

namespace {

class JSON_RPC_Method_Test : public testing::Test {
 protected:
  void SetUp() override {
    // A place of our own: the build tree may be open to others.
    std::filesystem::copy_file(TEST_PLUGIN, plugin_);
    ASSERT_EQ(0, chmod(plugin_.c_str(), 0755));
  }
  void TearDown() override { JSON_RPC_Dispatcher::close_instance(); }

  int init(std::vector<std::string> words) {
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return method_.init(static_cast<int>(words.size()), argv.data());
  }

  std::vector<std::string> ask(const std::string& method) {
    auto* const recorder = new Recording_Channel;
    const JSON_RPC_Channel_var channel(recorder);
    JSON_RPC_Dispatcher::instance()->dispatch(channel, make_request(method, Value(1)));
    return recorder->sent();
  }

  /// -1 when the plug-in is not loaded.
  int living_handlers() {
    void* const loaded = dlopen(plugin_.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (!loaded) return -1;
    const int living = reinterpret_cast<int (*)()>(dlsym(loaded, "living_handlers"))();
    dlclose(loaded);
    return living;
  }

  test_support::Temp_Dir dir_;
  const std::string plugin_ = dir_ / "plugin.so";
  test_support::Log_Capture log_;
  JSON_RPC_Method method_;
};

TEST_F(JSON_RPC_Method_Test, BindsTheHandlerOfTheFactory) {
  ASSERT_EQ(0, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler"})) << log_.all();
  EXPECT_THAT(ask("test.words"), ElementsAre(R"({"id":1,"jsonrpc":"2.0","result":""})"));
  EXPECT_THAT(JSON_RPC_Dispatcher::instance()->origins(), ElementsAre(plugin_));
  EXPECT_EQ(1, living_handlers());
}

TEST_F(JSON_RPC_Method_Test, WordsBehindTwoDashesGoToTheHandler) {
  ASSERT_EQ(0, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler", "--", "-x", "1"})) << log_.all();
  EXPECT_THAT(ask("test.words"), ElementsAre(R"({"id":1,"jsonrpc":"2.0","result":"[-x][1]"})"));
}

TEST_F(JSON_RPC_Method_Test, FiniUnbindsDestroysAndUnloads) {
  ASSERT_EQ(0, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler"}));
  EXPECT_EQ(0, method_.fini());
  EXPECT_THAT(JSON_RPC_Dispatcher::instance()->methods(), IsEmpty());
  EXPECT_EQ(-1, living_handlers());
  EXPECT_EQ(0, method_.fini());
}

TEST_F(JSON_RPC_Method_Test, TwoMethodsOfOnePluginLiveSideBySide) {
  JSON_RPC_Method other;
  std::string words[] = {"-m", "test.other", "-f", plugin_ + ":_make_Words_Handler"};
  char* argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
  ASSERT_EQ(0, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler"}));
  ASSERT_EQ(0, other.init(4, argv));
  EXPECT_EQ(2, living_handlers());
  EXPECT_EQ(0, other.fini());
  EXPECT_EQ(1, living_handlers());
  EXPECT_THAT(ask("test.words"), ElementsAre(R"({"id":1,"jsonrpc":"2.0","result":""})"));
}

TEST_F(JSON_RPC_Method_Test, HandlerThatRefusesToStartIsDestroyedAndNotBound) {
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler", "--", "refuse"}));
  EXPECT_TRUE(log_.has(LM_ERROR, "The handler of 'test.words' refuses to start.\n"));
  EXPECT_THAT(JSON_RPC_Dispatcher::instance()->methods(), IsEmpty());
  EXPECT_EQ(-1, living_handlers());
}

TEST_F(JSON_RPC_Method_Test, MethodThatIsBoundAlreadyIsRefused) {
  JSON_RPC_Handler taken;
  JSON_RPC_Dispatcher::instance()->bind("test.words", &taken);
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler"}));
  EXPECT_EQ(-1, living_handlers());
  EXPECT_THAT(JSON_RPC_Dispatcher::instance()->methods(), ElementsAre("test.words"));
}

TEST_F(JSON_RPC_Method_Test, FactoryThatMakesNothingIsAFailure) {
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", plugin_ + ":_make_No_Handler"}));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "made no handler"));
}

TEST_F(JSON_RPC_Method_Test, UnknownFactoryIsAFailure) {
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", plugin_ + ":_make_None"}));
  EXPECT_TRUE(log_.has(LM_ERROR, "'" + plugin_ + "' has no factory _make_None.\n"));
}

TEST_F(JSON_RPC_Method_Test, FileThatIsNoLibraryIsAFailure) {
  const std::string text = dir_.write("text.so", "no library");
  ASSERT_EQ(0, chmod(text.c_str(), 0755));
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", text + ":_make_Words_Handler"}));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "Failed to load '" + text + "': "));
}

TEST_F(JSON_RPC_Method_Test, RelativePathIsRefused) {
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", "plugin.so:_make_Words_Handler"}));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "not absolute"));
}

TEST_F(JSON_RPC_Method_Test, PluginThatOthersMayWriteIsRefused) {
  ASSERT_EQ(0, chmod(plugin_.c_str(), 0777));
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", plugin_ + ":_make_Words_Handler"}));
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "others may write it"));
  EXPECT_EQ(-1, living_handlers());
}

TEST_F(JSON_RPC_Method_Test, IncompleteLineIsRefused) {
  EXPECT_EQ(-1, init({}));
  EXPECT_EQ(-1, init({"-m", "test.words"}));
  EXPECT_EQ(-1, init({"-f", plugin_ + ":_make_Words_Handler"}));
  EXPECT_EQ(-1, init({"-m", "test.words", "-f", plugin_}));
  EXPECT_EQ(4u, log_.texts(LM_ERROR).size());
}

TEST_F(JSON_RPC_Method_Test, ServiceFactoryHandsOutItsDestroyer) {
  ACE_Service_Object_Exterminator gobbler = nullptr;
  ACE_Service_Object* const service = _make_JSON_RPC_Method(&gobbler);
  ASSERT_NE(nullptr, service);
  ASSERT_NE(nullptr, gobbler);
  gobbler(service);
}

}  // namespace
