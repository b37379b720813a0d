#pragma once

#include <functional>
#include <ostream>

#include "k8s/api/k8s_client.h"

namespace test_support {

/// What becomes of an operation when one of its requests fails.
enum Outcome {
  STOPS,     ///< false, and nothing else is sent
  GOES_ON,   ///< the operation does without
  PROBE,     ///< of a deletion: a lost one reads as "not there", a refused one as a failure
  DELETION,  ///< a lost one fails; a refused one shows by an object that stays
  WAIT,      ///< a lost one fails; a refused one is passed over
};

struct Expected_Request {
  std::string request;
  Outcome outcome;
  /// What a failure at this request logs.
  std::string log = "";
};

struct Operation {
  std::string name;
  std::vector<Expected_Request> requests;
  std::function<bool(K8S_Client_var client)> run;
  bool has_own_client = false;
};

inline void PrintTo(const Operation& operation, std::ostream* stream) {
  *stream << operation.name;
}

/// The operations of the library that send more than one kind of request, on the cluster that Fresh_Cluster makes.
const std::vector<Operation>& operations();

/// The claim "data" of the namespace "shop".
extern const char matrix_claim[];

}  // namespace test_support
