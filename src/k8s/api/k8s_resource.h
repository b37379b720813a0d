#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_def.h"

/**
 * A kind of Kubernetes objects: where its collection lies, and the operations that all kinds share.
 *
 * An operation gives true only on complete success. A failure is logged at LM_ERROR with the run-time name of the
 * class, the document, its JSON type and the status of the last exchange; a missing client at LM_EMERGENCY, and then
 * nothing is sent. Nothing is thrown. URLs are sent as the parts give them, without encoding.
 *
 * Life: made on the spot and dropped; it holds nothing of the cluster's state. Ownership: shares the client.
 * Threads: those of the client, one at a time.
 */
class K8S_Resource {
 public:
  /// @param url      the collection; its objects lie below.
  /// @param all_url  the collection across all namespaces; empty where there is none.
  K8S_Resource(K8S_Client_var client, std::string url, std::string all_url);
  virtual ~K8S_Resource();

  /**
   * Reads one object.
   *
   * @param val      the reply, also if that is no success: then often the server's status document.
   * @param logging  whether a failure is logged; false where absence is a normal answer.
   * @retval true  status 200.
   */
  virtual bool get(const std::string& name, json_spirit::Value& val, bool logging);

  /// Reads the collection. @retval true status 200. @a val holds the reply in both cases.
  virtual bool list(json_spirit::Value& val, const query_selectors& queries);

  /**
   * Deletes one object and waits until it is gone: until it reads 404, for @a retry_times rounds after the first (-1:
   * without such a bound) and about K8S_QVX_RETRY_TIMEOUT seconds.
   *
   * An object that can't be read to begin with counts as gone. The status of the DELETE itself is not looked at.
   *
   * @param name     leads to an object: an empty one, or one that would address the collection itself, is refused with
   *                 a line at LM_EMERGENCY before anything is sent.
   * @param logging  whether an object that stays is logged.
   * @retval false  also when a read during the wait fails, which is not logged.
   */
  virtual bool delete_(const std::string& name, bool logging, int retry_times);

  /// Creates an object. @retval true status 201, and no other.
  virtual bool post(const json_spirit::Value& val);

  /// list() across all namespaces; a kind without such a collection gets a line at LM_EMERGENCY.
  virtual bool list_all(json_spirit::Value& val, const query_selectors& queries);

 protected:
  /// The run-time name of the class, for the log.
  const char* type_name() const;

  K8S_Client_var client_;
  std::string url_;
  std::string all_url_;

 private:
  bool list_url(const std::string& url, json_spirit::Value& val, const query_selectors& queries);
  bool wait_until_gone(const std::string& name, const std::string& url, bool logging, int retry_times);
};

/// The objects below a URL that the caller already holds. There is no collection across namespaces.
class K8S_General_Resource : public K8S_Resource {
 public:
  K8S_General_Resource(K8S_Client_var client, std::string url);
};
