#include "json_spirit/extract.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/node_paths.h"
#include "simulated_cluster.h"
#include "support/fake_clock.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

struct Kind {
  const char* group;
  const char* resource;
  const char* head;  // "kind" and "apiVersion"
  const char* spec;
};
const Kind kinds[] = {
    {"", "pods", R"("kind":"Pod","apiVersion":"v1")", R"({"containers":[{"name":"c","image":"i"}]})"},
    {"", "persistentvolumeclaims", R"("kind":"PersistentVolumeClaim","apiVersion":"v1")",
     R"({"accessModes":["ReadWriteOnce"],"resources":{"requests":{"storage":"1Gi"}}})"},
    {"snapshot.storage.k8s.io", "volumesnapshots",
     R"("kind":"VolumeSnapshot","apiVersion":"snapshot.storage.k8s.io/v1")",
     R"({"source":{"persistentVolumeClaimName":"data"}})"},
};
const char mark[] = R"({"component":"tessarin-agent"})";

std::string path_on_node(const std::string& name) {
  return k8s::root_directory + name;
}

struct Clean_Env : Simulated_Cluster {
  Clean_Env() { fs::remove_all(k8s::root_directory); }

  void create_object(const Kind& kind, const std::string& ns, const std::string& name, const std::string& labels) {
    create(kind.group, kind.resource,
           std::string("{") + kind.head + R"(,"metadata":{"name":")" + name + R"(","namespace":")" + ns +
               R"(","labels":)" + labels + R"(},"spec":)" + kind.spec + "}");
  }
  void create_marked(const std::string& ns) {
    for (const Kind& kind : kinds)
      for (const char* name : {"agent-1", "agent-2"}) create_object(kind, ns, name, mark);
  }
  /// Each object of the cluster, of whatever namespace, by its address.
  std::map<std::string, std::string> objects() const {
    std::map<std::string, std::string> result;
    const std::pair<const char*, const char*> resources[] = {{"", "pods"},
                                                             {"", "persistentvolumeclaims"},
                                                             {"snapshot.storage.k8s.io", "volumesnapshots"},
                                                             {"", "configmaps"},
                                                             {"", "secrets"},
                                                             {"", "services"},
                                                             {"", "namespaces"},
                                                             {"apps", "deployments"}};
    for (const auto& [group, resource] : resources)
      for (const auto& object : cluster.list(group, resource)) {
        std::string ns, name;
        pextract(*object).chroot("/metadata")("/namespace", ns)("/name", name);
        result[ns + "/" + resource + "/" + name] = json_spirit::JSON_Dump(*object, false).str();
      }
    return result;
  }
  std::vector<std::string> marked(const std::string& resource) const {
    std::vector<std::string> names;
    for (const auto& [address, text] : objects())
      if (address.find("/" + resource + "/agent-") != address.npos) names.push_back(address);
    return names;
  }
  void make_node_files() {
    dir.write("file", "kept");
    ASSERT_TRUE(k8s::mount_bind(dir.path(), path_on_node("data/volume")));
    std::ofstream(path_on_node("state")) << "gone";
  }
  long slept_sec() const {
    std::chrono::milliseconds sum(0);
    for (const auto span : clock.sleeps()) sum += span;
    return std::chrono::duration_cast<std::chrono::seconds>(sum).count();
  }
  bool on_node(const std::string& name) const { return fs::exists(path_on_node(name)); }

  Fake_Clock clock;
  Temp_Dir dir;
};

TEST_F(Clean_Env, RemovesWhatBearsTheLabelAndTheFilesOfTheNode) {
  create_marked("shop");
  make_node_files();
  EXPECT_TRUE(k8s::clean_env("shop")) << log.all();
  for (const Kind& kind : kinds) EXPECT_THAT(marked(kind.resource), IsEmpty());
  EXPECT_FALSE(fs::exists(k8s::root_directory));
  EXPECT_EQ(read_file(dir / "file"), "kept");
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Clean_Env, TouchesNothingElse) {
  create_namespace("other");
  for (const Kind& kind : kinds) {
    create_object(kind, "shop", "user-plain", "{}");
    create_object(kind, "shop", "user-labelled", R"({"component":"database","app":"tessarin-agent"})");
    create_object(kind, "shop", "user-alike", R"({"components":"tessarin-agent","component":"tessarin-agent2"})");
  }
  create("", "configmaps",
         std::string(R"({"kind":"ConfigMap","apiVersion":"v1","metadata":{"name":"marked",
      "namespace":"shop","labels":)") +
             mark + "}}");
  create_marked("other");
  const auto before = objects();
  create_marked("shop");
  EXPECT_NE(objects(), before);
  EXPECT_TRUE(k8s::clean_env("shop"));
  EXPECT_EQ(objects(), before);
}

TEST_F(Clean_Env, OfAnEmptyNamespaceAndNodeSendsThreeListsAndNothingElse) {
  EXPECT_TRUE(k8s::clean_env("shop"));
  const std::string query = "?labelSelector=component%3Dtessarin-agent";
  EXPECT_THAT(requests(), ElementsAre("GET /api/v1/namespaces/shop/pods" + query,
                                      "GET /api/v1/namespaces/shop/persistentvolumeclaims" + query,
                                      "GET /apis/snapshot.storage.k8s.io/v1/namespaces/shop/volumesnapshots" + query));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Clean_Env, AsksForNoSnapshotsWhereTheClusterHasNone) {
  K8S_Cluster::instance()->get_resource_gv("volumesnapshots").clear();
  EXPECT_TRUE(k8s::clean_env("shop"));
  EXPECT_EQ(requests().size(), 2u);
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Clean_Env, EndsAtAPodThatDoesNotGo) {
  create_marked("shop");
  make_node_files();
  cluster.update({"", "pods", "shop", "agent-1"}, [](json_spirit::Object& pod) {
    pod["metadata"].get_obj()["finalizers"].to_new_array().push_back(Value("example.com/held"));
    return true;
  });
  EXPECT_FALSE(k8s::clean_env("shop"));
  EXPECT_THAT(errors(), ElementsAre(testing::MatchesRegex("Type .* name agent-1 exists after delete\n")));
  EXPECT_GE(slept_sec(), K8S_QVX_RETRY_TIMEOUT);
  EXPECT_THAT(requests(), testing::Each(testing::HasSubstr("/pods")));
  EXPECT_EQ(marked("pods").size(), 2u);
  EXPECT_EQ(marked("persistentvolumeclaims").size(), 2u);
  EXPECT_EQ(marked("volumesnapshots").size(), 2u);
  EXPECT_TRUE(on_node("data/volume/file"));
  EXPECT_TRUE(on_node("state"));
  k8s::umounts(k8s::data_directory);
}

TEST_F(Clean_Env, EndsAtAClaimThatDoesNotGo) {
  create_marked("shop");
  make_node_files();
  cluster.update({"", "persistentvolumeclaims", "shop", "agent-1"}, [](json_spirit::Object& claim) {
    claim["metadata"].get_obj()["finalizers"].to_new_array().push_back(Value("kubernetes.io/pvc-protection"));
    return true;
  });
  EXPECT_FALSE(k8s::clean_env("shop"));
  EXPECT_THAT(marked("pods"), IsEmpty());
  EXPECT_EQ(marked("persistentvolumeclaims").size(), 2u);
  EXPECT_EQ(marked("volumesnapshots").size(), 2u);
  EXPECT_TRUE(on_node("data/volume/file"));
  k8s::umounts(k8s::data_directory);
}

TEST_F(Clean_Env, GoesOnWhenASnapshotDoesNotGo) {
  create_marked("shop");
  make_node_files();
  cluster.update({"snapshot.storage.k8s.io", "volumesnapshots", "shop", "agent-1"}, [](json_spirit::Object& snapshot) {
    snapshot["metadata"].get_obj()["finalizers"].to_new_array().push_back(Value("example.com/held"));
    return true;
  });
  EXPECT_TRUE(k8s::clean_env("shop"));
  EXPECT_EQ(marked("volumesnapshots").size(), 1u);
  EXPECT_FALSE(fs::exists(k8s::root_directory));
}

/// The same with a server that answers by a script.
struct Scripted_Clean_Env : Cluster_Fixture {
  const std::string pods = "/api/v1/namespaces/shop/pods?labelSelector=component%3Dtessarin-agent";
  const std::string claims = "/api/v1/namespaces/shop/persistentvolumeclaims?labelSelector=component%3Dtessarin-agent";
};

TEST_F(Scripted_Clean_Env, TellsWhatItCannotList) {
  expect(pods, 403, "{}");
  EXPECT_FALSE(k8s::clean_env("shop"));
  EXPECT_EQ(errors().back(), "Failed to list agent pod\n");

  expect(pods, 200, "{}");
  expect(claims, 500, "{}");
  EXPECT_FALSE(k8s::clean_env("shop"));
  EXPECT_EQ(errors().back(), "Failed to list agent pvc\n");
}

TEST_F(Scripted_Clean_Env, EndsSilentlyAtAnItemWithoutAName) {
  for (const char* item : {"{}", R"({"metadata":{"name":""}})", R"({"metadata":{"name":7}})", "7"}) {
    expect(pods, 200, std::string(R"({"items":[)") + item + R"(,{"metadata":{"name":"p"}}]})");
    EXPECT_FALSE(k8s::clean_env("shop")) << item;
  }
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_THAT(emergencies(), IsEmpty());
}

TEST_F(Scripted_Clean_Env, ListsWithoutItemsDeleteNothing) {
  expect(pods, 200, "{}");
  expect(claims, 200, R"({"items":null})");
  EXPECT_TRUE(k8s::clean_env("shop"));
}

}  // namespace
