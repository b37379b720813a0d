#pragma once

#include "support/kube_sim/object_store.h"
#include "support/kube_sim/request_body.h"
#include "support/kube_sim/resource_table.h"

/// How the server stores, changes and deletes objects, whoever asks. Requests and controllers share these.
namespace kube_sim {

typedef Object_Store::Transaction Transaction;

/// An object that is to be stored for the first time, complete with its name, uid, creation time and defaults.
/// The namespace stands in its metadata.
void complete_new(const Resource& resource, json_spirit::Object& object, const Transaction& store);

Object_Id id_of(const Resource& resource, const json_spirit::Object& object);

/**
 * Stores @a after in place of @a before.
 *
 * Keeps what the server keeps to itself (uid, times, generation), drops empty lists and maps of the metadata, stores
 * nothing when nothing has changed, and lets the object go when it was being deleted and nothing holds it any more.
 * @return the object as it is now, or was at last
 */
Stored_Object_var store_update(const Resource& resource, Transaction& store, const Stored_Object_var& before,
                               json_spirit::Object after);
/// What store_update() would store.
json_spirit::Object complete_update(const Resource& resource, const Stored_Object_var& before,
                                    json_spirit::Object after);

struct Deletion {
  /// As it is now, or was at last.
  Stored_Object_var object;
  bool gone = false;
};
/// Deletes with the options' grace period and propagation. What has finalizers, or a grace period, stays for a while.
Deletion store_delete(const Resource& resource, Transaction& store, const Stored_Object_var& stored,
                      const Delete_Options& options);

/// The service account and the config map that every namespace has.
void furnish_namespace(const Resource_Table& table, Transaction& store, const std::string& ns);

/// "default" and so on: namespaces that may not be deleted.
bool is_protected_namespace(const std::string& name);

}  // namespace kube_sim
