#pragma once

#include <string>

#include "kolt/export.h"

class TESSARIN_API JSON_RPC_Id_Generator {
 public:
  /// A request id that was given to nobody before, in this process or, as good as certain, in another. Threads: any.
  static std::string get();
};
