#include "mtf_backup/set/medium_reader.h"

#include <algorithm>
#include <cstring>

#include "mtf_backup/set/frame_cache.h"

namespace MTF_BACKUP {

Medium_Reader::Medium_Reader(Client_IO_Base& storage, const Medium_Id& id, uint64_t medium_size, uint64_t index_size,
                             Frame_Workers& workers)
    : medium_size_(medium_size), index_size_(index_size), cache_(std::make_unique<Frame_Cache>(storage, id, workers)) {}

Medium_Reader::~Medium_Reader() = default;

bool Medium_Reader::open() {
  return cache_->open(medium_size_, index_size_);
}

uint64_t Medium_Reader::size() const {
  return cache_->size();
}

bool Medium_Reader::view(uint64_t offset, size_t n, Frame_View& view) {
  return cache_->view(offset, n, view);
}

ssize_t Medium_Reader::read(uint64_t offset, char* to, size_t n) {
  size_t done = 0;
  while (done < n) {
    Frame_View piece;
    if (!view(offset + done, n - done, piece)) return -1;
    if (piece.size() == 0) break;
    std::memcpy(to + done, piece.data(), piece.size());
    done += piece.size();
  }
  return static_cast<ssize_t>(done);
}

}  // namespace MTF_BACKUP
