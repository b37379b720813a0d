#include "ctl/sets/export_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ctl/failure.h"
#include "kolt/rename_new.h"

namespace ctl {

namespace {

constexpr char unfinished_mark[] = ".unfinished-XXXXXX";

[[noreturn]] void fail(Exit_Code code, const std::string& path, const char* what, int error) {
  throw Failure(code, "The file '" + path + "' cannot be " + what + ": " + std::strerror(error) + ".");
}

bool sync_directory(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Posix_Fd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd && fsync(fd.get()) == 0;
}

}  // namespace

Export_File::Export_File(const std::string& path) : path_(path) {
  if (path == "-") return;
  if (faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) fail(exit_usage, path, "made", EEXIST);
  unfinished_ = path + unfinished_mark;
  file_ = Posix_Fd(mkostemp(unfinished_.data(), O_CLOEXEC));
  if (!file_) fail(exit_usage, path, "made", errno);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &previous_);
}

Export_File::~Export_File() {
  if (!file_) return;
  if (!unfinished_.empty()) ::unlink(unfinished_.c_str());
  sigaction(SIGPIPE, &previous_, nullptr);
}

int Export_File::fd() const {
  return file_ ? file_.get() : STDOUT_FILENO;
}

void Export_File::finish() {
  if (!file_) return;
  if (fsync(file_.get()) != 0 || rename_new(AT_FDCWD, unfinished_.c_str(), path_.c_str()) != 0)
    fail(exit_job_failed, path_, "written", errno);
  unfinished_.clear();
  if (!sync_directory(path_)) fail(exit_job_failed, path_, "written", errno);
}

}  // namespace ctl
