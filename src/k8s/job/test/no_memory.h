#pragma once

/// The first allocation by `new (std::nothrow)` on this thread while it lives fails. Not the later ones: the smart
/// pointers allocate too, even to hold nothing.
class No_Memory {
 public:
  No_Memory();
  ~No_Memory();
};
