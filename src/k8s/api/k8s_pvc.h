#pragma once

#include "k8s/api/k8s_resource.h"

/**
 * The persistent volume claims of a namespace. The copies of claims that this system makes bear k8s::label() and are
 * deleted with delete_().
 */
class K8S_PVC : public K8S_Resource {
 public:
  K8S_PVC(K8S_Client_var client, const std::string& ns);
  ~K8S_PVC() override;

  /// Clones the claim that the JSON file @a path describes as the API returns a claim, under the derived name.
  /// @retval false  a file that can't be read is not logged.
  bool clone(const std::string& path);

  /// Clones the claim @a name as @a clone_name; empty: under the derived name.
  bool clone(const std::string& name, const std::string& clone_name);

  /// Makes an empty claim. Nothing tests the arguments.
  bool create(const std::string& name, const std::string& sc, const json_spirit::Object& resources,
              const json_spirit::Array& access_mode, const std::string& volume_mode, const std::string& api_version);

  /**
   * Makes a claim from the snapshot of the claim @a pvc_info, which the snapshot's default name leads to. The claim of
   * @a pvc_info must still be there; its binding is waited for.
   *
   * @param pvc_info  a claim as the API returns it.
   * @param name      of the new claim, which bears the label; empty: the name of @a pvc_info, and no label.
   */
  bool create_from_snapshot(const json_spirit::Value& pvc_info, const std::string& name);

  /**
   * Waits until the claim is bound, for @a retry_times rounds after the first (-1: without such a bound) and about
   * K8S_QVX_RETRY_TIMEOUT seconds.
   *
   * @param logging  whether a claim that does not get bound is logged, with its events. A claim that can't be read is
   *                 logged in any case, and not waited for.
   */
  bool is_bound(const std::string& name, bool logging, int retry_times);

  /// Waits until the claim is bound, and reads its volume. @retval false @a val may hold a reply that is no volume.
  bool get_pv(const std::string& name, json_spirit::Value& val);

  /// The name of the claim's volume, without a wait. @retval false @a pv_name is untouched.
  bool get_pv_name(const std::string& name, std::string& pv_name);

  /**
   * Makes a clone of the claim @a clone_body, a claim as the API returns it, whose namespace must be this object's.
   * Class, modes and resources are the source's; all else is left behind.
   *
   * @param clone_body  of no use afterwards: its parts are moved out.
   * @param clone_name  empty: the derived name, k8s::generate_resource_name(source, "tessarin").
   */
  bool clone_i(json_spirit::Object& clone_body, const std::string& clone_name);

 private:
  std::string ns_;
};
