#include "mtf_backup/restore/target_tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/restore/private_dir.h"
#include "mtf_backup/restore/selection.h"
#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

std::string Target::directory() const {
  const size_t end = below.rfind('/');
  return end == std::string::npos ? std::string() : below.substr(0, end);
}

std::string Target::name() const {
  return below.substr(below.rfind('/') + 1);
}

std::string Target::shown() const {
  return printable(path_in_set(root->path, below));
}

Target_Tree::Target_Tree(MTF::IPath_Converter_var converter, const std::string& location,
                         MTF::IRestore_Callback_var callback)
    : converter_(converter), location_(location.empty() ? "/" : location), callback_(callback) {}

Target_Tree::~Target_Tree() = default;

bool Target_Tree::locate(const std::string& path, bool directory, Target& target) {
  std::string base = location_;
  target.below = path.substr(std::min(path.find_first_not_of('/'), path.size()));
  if (converter_ && !converter_->convert_below(path, base, target.below)) return false;
  if (!lies_below(base, location_)) return false;
  if (target.below.empty() && !directory) {
    // A rule for one file: the directory in which it is to lie is what the rule chose.
    const size_t end = base.rfind('/');
    if (end == std::string::npos || end + 1 == base.size()) return false;
    target.below = base.substr(end + 1);
    base.resize(std::max<size_t>(end, 1));
  }
  target.root = root(base);
  return true;
}

Target_Root* Target_Tree::root(const std::string& path) {
  if (last_root_ && last_root_->path == path) return last_root_;
  auto& root = roots_[path];
  if (!root) root.reset(new Target_Root{path, Posix_Fd(), Posix_Fd()});
  return last_root_ = root.get();
}

bool Target_Tree::open_root(Target_Root& root) {
  if (root.fd) return true;
  if (!callback_->mkdir_p(root.path.c_str())) return false;
  root.fd = Posix_Fd(::open(root.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root.fd) return false;
  root.disk = Posix_Fd(::openat(root.fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return true;
}

bool Target_Tree::make_directory(const Target& target, unsigned mode) {
  if (!open_root(*root(target.root->path))) return false;
  const int root_fd = target.root->fd.get();
  const std::string& below = target.below;
  Anchored_Dir dir;
  // Up to the last one that is there ...
  size_t end = below.size();
  while (!dir.open(root_fd, below.substr(0, end))) {
    if (errno != ENOENT || end == 0) return false;
    const size_t slash = below.rfind('/', end - 1);
    end = slash == std::string::npos ? 0 : slash;
  }
  if (end == below.size()) {
    Private_Dir::sweep(dir);
    return true;
  }
  // ... and down again.
  while (end < below.size()) {
    const size_t start = end == 0 ? 0 : end + 1;
    end = std::min(below.find('/', start), below.size());
    const std::string name = below.substr(start, end - start);
    if (!callback_->mkdir_p(dir.path(name))) return false;
    Anchored_Dir next;
    if (!next.open(dir.fd(), name)) return false;
    dir = std::move(next);
  }
  const bool open_to_all = (mode & 055) == 055;
  return open_to_all || callback_->set_mode(dir.path(""), 0700) == MTF::E_OK;
}

bool Target_Tree::sync() const {
  // Each by the descriptor of its own: what it tells depends on when it was opened. A second call costs little.
  for (const auto& [path, root] : roots_) {
    if (!root->fd) continue;
    if (!root->disk) {
      ::sync();  // a directory that an ordinary user may write to and not read
    } else if (::syncfs(root->disk.get()) != 0) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to write all to disk below %C: %C\n"), printable(path).c_str(),
                 std::strerror(errno)));
      return false;
    }
  }
  return true;
}

}  // namespace MTF_BACKUP
