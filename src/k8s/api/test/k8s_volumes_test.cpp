#include "k8s/api/k8s_utils.h"
#include "resource_fixture.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

struct Volumes : Resource_Fixture {
  std::vector<std::string> empty(const std::string& what) {
    return {"k8s/api/k8s_volumes.cpp, " + what + " is NULL or empty:"};
  }
};

// find_volume_by_name

TEST_F(Volumes, AreFoundByNameAmongWhateverStandsBesideThem) {
  const Value vols =
      json(R"([7, "b", [{"name":"b"}], {}, {"name":1}, {"name":"a"}, {"name":"b","n":1}, {"name":"b","n":2}])");
  EXPECT_EQ(k8s::find_volume_by_name(vols.get_array(), "b"), &vols.get_array()[6].get_obj());
  EXPECT_EQ(k8s::find_volume_by_name(vols.get_array(), "c"), nullptr);
  EXPECT_EQ(k8s::find_volume_by_name(vols.get_array(), ""), nullptr);
  EXPECT_EQ(k8s::find_volume_by_name({}, "b"), nullptr);
  EXPECT_TRUE(nothing_logged());
}

// is_pvc_present

TEST_F(Volumes, AreClaimsWhenTheyAreAClaimOrLieOnNfs) {
  const std::map<std::string, bool> expected = {
      {R"({"persistentVolumeClaim":{"claimName":"a"}})", true},
      {R"({"nfs":{"server":"s"}})", true},
      {R"({"persistentVolumeClaim":{},"nfs":{"server":"s"}})", true},
      {R"({"persistentVolumeClaim":{}})", false},
      {R"({"nfs":{}})", false},
      {R"({"persistentVolumeClaim":"a","nfs":["s"]})", false},
      {R"({"name":"v","emptyDir":{"medium":"Memory"}})", false},
      {R"({})", false},
  };
  for (const auto& [volume, present] : expected)
    EXPECT_EQ(k8s::is_pvc_present(json(volume).get_obj()), present) << volume;
}

// build_self_link

TEST_F(Volumes, SelfLinkIsThePathOfAnObjectInItsNamespace) {
  const std::map<std::string, std::string> expected = {
      {R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"p","namespace":"n"}})", "/api/v1/namespaces/n/pods/p"},
      {R"({"kind":"Deployment","apiVersion":"apps/v1","metadata":{"name":"d","namespace":"n"}})",
       "/apis/apps/v1/namespaces/n/deployments/d"},
      {R"({"kind":"NetworkPolicy","apiVersion":"networking.k8s.io/v1","metadata":{"name":"x","namespace":"n"}})",
       "/apis/networking.k8s.io/v1/namespaces/n/networkpolicies/x"},
      {R"({"kind":"Widget","apiVersion":"v1beta1","metadata":{"name":"w","namespace":"n"}})",
       "/apis/v1beta1/namespaces/n/widgets/w"},
      {R"({"kind":"Namespace","apiVersion":"v1","metadata":{"name":"n"}})", "/api/v1/namespaces/n"},
  };
  for (const auto& [resource, link] : expected) {
    std::string self_link = "before";
    EXPECT_TRUE(k8s::build_self_link(json(resource), self_link)) << resource;
    EXPECT_EQ(self_link, link);
  }
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Volumes, SelfLinkOfAnIncompleteObjectIsRefusedByTheFirstPartThatLacks) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({})", "name"},
      {R"([])", "name"},
      {R"({"metadata":{"name":""}})", "name"},
      {R"({"metadata":{"name":"p"}})", "kind"},
      {R"({"metadata":{"name":"p"},"kind":"","apiVersion":"v1"})", "kind"},
      {R"({"metadata":{"name":"p"},"kind":"Pod"})", "api_version"},
      {R"({"metadata":{"name":"p"},"kind":"Pod","apiVersion":1})", "api_version"},
      {R"({"metadata":{"name":"p"},"kind":"Pod","apiVersion":"v1"})", "ns"},
      {R"({"metadata":{"name":"node-1"},"kind":"Node","apiVersion":"v1"})", "ns"},
      {R"({"metadata":{"name":"p","namespace":""},"kind":"Pod","apiVersion":"v1"})", "ns"},
  };
  for (const auto& [resource, missing] : cases) {
    log.clear();
    std::string self_link = "before";
    EXPECT_FALSE(k8s::build_self_link(json(resource), self_link)) << resource;
    EXPECT_EQ(emergencies(), empty(missing)) << resource;
    EXPECT_EQ(self_link, "before");
  }
}

// get_pvc_mount_path

TEST_F(Volumes, MountPathIsThatOfTheFirstMountOfTheClaimsVolume) {
  const Value pod = json(R"({"spec":{
    "volumes":["x", {"emptyDir":{}}, {"name":"other","persistentVolumeClaim":{"claimName":"b"}},
               {"name":"data","persistentVolumeClaim":{"claimName":"a"}},
               {"name":"late","persistentVolumeClaim":{"claimName":"a"}}, {"persistentVolumeClaim":{}}],
    "containers":[7, {"volumeMounts":[{"name":"other","mountPath":"/other"}]},
                  {"volumeMounts":["x", {"name":"late","mountPath":"/late"}, {"name":"data","mountPath":"/first"},
                                   {"name":"data","mountPath":"/second"}, {}]}]}})");
  std::string path;
  EXPECT_TRUE(k8s::get_pvc_mount_path(pod, "a", path));
  EXPECT_EQ(path, "/first");
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Volumes, ClaimThatNoContainerMountsHasNoPathAndNoLine) {
  const Value pod = json(R"({"spec":{"volumes":[{"name":"data","persistentVolumeClaim":{"claimName":"a"}}],
                                     "containers":[{"volumeMounts":[{"name":"other","mountPath":"/other"}]}]}})");
  std::string path = "before";
  EXPECT_FALSE(k8s::get_pvc_mount_path(pod, "a", path));
  EXPECT_EQ(path, "before");
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Volumes, SearchForAMountEndsAtWhatIsMalformed) {
  const std::string volumes = R"("volumes":[{"name":"data","persistentVolumeClaim":{"claimName":"a"}}])";
  const std::string mounted = R"({"volumeMounts":[{"name":"data","mountPath":"/data"}]})";
  const std::string containers = R"("containers":[)" + mounted + "]";
  const std::pair<std::string, std::string> cases[] = {
      {containers, "volumes"},
      {R"("volumes":[],)" + containers, "volumes"},
      {R"("volumes":{},)" + containers, "volumes"},
      {volumes, "containers"},
      {volumes + R"(,"containers":[])", "containers"},
      {R"("volumes":[],"containers":[])", "volumes"},
      {R"("volumes":[{"persistentVolumeClaim":{"claimName":"a"}}],)" + containers, "name"},
      {R"("volumes":[{"name":"","persistentVolumeClaim":{}}],)" + containers, "name"},
      {R"("volumes":[{"name":"data","persistentVolumeClaim":{}}],)" + containers, "claim_name"},
      {R"("volumes":[{"name":"data","persistentVolumeClaim":{"claimName":""}}],)" + containers, "claim_name"},
      {R"("volumes":[{"name":"data","emptyDir":{}}],)" + containers, "volume_name"},
      {R"("volumes":[{"name":"data","persistentVolumeClaim":{"claimName":"b"}}],)" + containers, "volume_name"},
      {volumes + R"(,"containers":[{},)" + mounted + "]", "volume_mounts"},  // though the second one mounts the claim
      {volumes + R"(,"containers":[{"volumeMounts":[]},)" + mounted + "]", "volume_mounts"},
      {volumes + R"(,"containers":[{"volumeMounts":[{"mountPath":"/data"}]}])", "name"},
      {volumes + R"(,"containers":[{"volumeMounts":[{"name":"other"},{"name":"data","mountPath":"/data"}]}])",
       "mount_path"},
      {volumes + R"(,"containers":[{"volumeMounts":[{"name":"data","mountPath":""}]}])", "mount_path"},
  };
  for (const auto& [spec, missing] : cases) {
    log.clear();
    std::string path = "before";
    EXPECT_FALSE(k8s::get_pvc_mount_path(json(R"({"spec":{)" + spec + "}}"), "a", path)) << spec;
    EXPECT_EQ(emergencies(), empty(missing)) << spec;
    EXPECT_EQ(path, "before");
  }
}

}  // namespace
