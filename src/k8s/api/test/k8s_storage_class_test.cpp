#include "k8s/api/k8s_storage_class.h"

#include "resource_fixture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

const char get_class[] = "GET /apis/storage.k8s.io/v1/storageclasses/fast";
const char post_class[] = "POST /apis/storage.k8s.io/v1/storageclasses";

struct StorageClass : Resource_Fixture {
  bool copy(const std::string& text) {
    server.expect({get_class, 200, text});
    return K8S_Storage_Class(server.client()).create_immediate_sc("fast", new_sc);
  }
  /// What was sent, its random name taken out.
  std::string sent_without_name() {
    Value sent = server.sent();
    Object& metadata = sent.get_obj()["metadata"].get_obj();
    EXPECT_EQ(metadata["name"].get_str(), new_sc);
    metadata.erase("name");
    return json_spirit::JSON_Dump(sent, false).str();
  }

  std::string new_sc;
};

TEST_F(StorageClass, CopyIsTheWholeClassWithAnotherNameAndMode) {
  server.expect({get_class, 200, R"({"kind":"StorageClass","apiVersion":"storage.k8s.io/v1","provisioner":"p",
      "parameters":{"a":"b"},"volumeBindingMode":"WaitForFirstConsumer","metadata":{"name":"fast","uid":"u",
      "resourceVersion":"7","selfLink":"/x","creationTimestamp":"t","managedFields":[{}],"labels":{"l":"m"},
      "annotations":{"storageclass.kubernetes.io/is-default-class":"true"}}})"});
  server.expect({post_class, 201});
  EXPECT_TRUE(K8S_Storage_Class(server.client()).create_immediate_sc("fast", new_sc));
  EXPECT_EQ(new_sc.size(), 8u);
  EXPECT_EQ(new_sc.find_first_not_of("abcdefghijklmnopqrstuvwxyz"), std::string::npos);
  EXPECT_EQ(sent_without_name(),
            json_spirit::JSON_Dump(json(R"({"kind":"StorageClass","apiVersion":"storage.k8s.io/v1","provisioner":"p",
      "parameters":{"a":"b"},"volumeBindingMode":"Immediate","metadata":{"creationTimestamp":"t","managedFields":[{}],
      "labels":{"l":"m"},"annotations":{"storageclass.kubernetes.io/is-default-class":"true"}}})"),
                                   false)
                .str());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(StorageClass, CopyOfARecordedClassIsLikeTheOneThatARealServerTook) {
  server.expect_all({recorded("storageclasses", "get"), {post_class, 201}});
  EXPECT_TRUE(K8S_Storage_Class(server.client()).create_immediate_sc("fast", new_sc));
  Value source = json(recorded("storageclasses", "get").reply);
  Object& metadata = source.get_obj()["metadata"].get_obj();
  for (const char* key : {"name", "uid", "resourceVersion"}) EXPECT_EQ(metadata.erase(key), 1u) << key;
  source.get_obj()["volumeBindingMode"] = "Immediate";
  EXPECT_EQ(sent_without_name(), json_spirit::JSON_Dump(source, false).str());
}

TEST_F(StorageClass, CopyIsMadeOfAnImmediateClassToo) {
  const char text[] = R"({"volumeBindingMode":"Immediate","metadata":{"name":"fast"}})";
  server.expect_all({{get_class, 200, text}, {post_class, 201}, {get_class, 200, text}, {post_class, 201}});
  K8S_Storage_Class classes(server.client());
  std::string second;
  EXPECT_TRUE(classes.create_immediate_sc("fast", new_sc));
  EXPECT_TRUE(classes.create_immediate_sc("fast", second));
  EXPECT_NE(new_sc, second);
}

TEST_F(StorageClass, CopyNeedsABindingMode) {
  for (const char* mode : {"", R"(,"volumeBindingMode":"")", R"(,"volumeBindingMode":1)"}) {
    log.clear();
    EXPECT_FALSE(copy(std::string(R"({"metadata":{"name":"fast"})") + mode + "}")) << mode;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_storage_class.cpp, volume_binding_mode is NULL or empty:"));
  }
  EXPECT_EQ(new_sc, "");
}

TEST_F(StorageClass, CopyNeedsMetadata) {
  for (const char* text : {"{}", R"({"metadata":{}})", R"({"metadata":[]})", R"({"volumeBindingMode":"Immediate"})"}) {
    log.clear();
    EXPECT_FALSE(copy(text)) << text;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_storage_class.cpp, metadata is NULL or empty:"));
  }
  EXPECT_EQ(new_sc, "");
}

TEST_F(StorageClass, CopyOfAClassThatIsNotThereIsLoggedOnce) {
  server.expect({get_class, 404, not_found});
  EXPECT_FALSE(K8S_Storage_Class(server.client()).create_immediate_sc("fast", new_sc));
  EXPECT_EQ(new_sc, "");
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_Storage_Class>("fast", not_found, 404)));
}

TEST_F(StorageClass, CopyOfWhatIsNoObjectIsNotMade) {
  struct Array_Class : K8S_Storage_Class {
    using K8S_Storage_Class::K8S_Storage_Class;
    bool get(const std::string&, Value& val, bool) override {
      val = json("[]");
      return true;
    }
  };
  EXPECT_FALSE(Array_Class(server.client()).create_immediate_sc("fast", new_sc));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(StorageClass, CopyThatIsRefusedKeepsTheNameThatWasTried) {
  server.expect_all(
      {{get_class, 200, R"({"volumeBindingMode":"Immediate","metadata":{"name":"fast"}})"}, {post_class, 409}});
  EXPECT_FALSE(K8S_Storage_Class(server.client()).create_immediate_sc("fast", new_sc));
  EXPECT_EQ(new_sc.size(), 8u);
  EXPECT_THAT(errors(), ElementsAre(create_failure<K8S_Storage_Class>(server.sent(), 409),
                                    "Failed to create immediate volume binding mode storage class '" + new_sc +
                                        "' of 'fast'.\n"));
}

TEST_F(StorageClass, HasNoCollectionAcrossNamespaces) {
  Value val;
  EXPECT_FALSE(K8S_Storage_Class(server.client()).list_all(val, {}));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_resource.cpp, all_url_ is empty:"));
}

}  // namespace
