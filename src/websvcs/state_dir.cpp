#include "websvcs/state_dir.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "ace/Log_Msg.h"
#include "kolt/mkdir_p.h"
#include "kolt/rand_char.h"

namespace {

constexpr size_t longest_content = 4096;

bool is_private(const struct stat& status) {
  return status.st_uid == ::geteuid() && (status.st_mode & 077) == 0;
}

std::string random_text(size_t length, unsigned set) {
  std::string text(length, '\0');
  std::generate(text.begin(), text.end(), [set] { return kolt::rand_char(set); });
  return text;
}

std::string make_token() {
  return random_text(43, kolt::RCS_ALNUM);
}

// A random UUID (version 4): 122 random bits and 6 fixed ones.
std::string make_uuid() {
  std::string uuid = "00000000-0000-4000-a000-000000000000";
  for (size_t i = 0; i < uuid.size(); ++i) {
    if (uuid[i] != '0') continue;
    char digit;
    do digit = kolt::rand_char(kolt::RCS_NUM_LOWER);
    while (digit > 'f');
    uuid[i] = digit;
  }
  uuid[19] = "89ab"[static_cast<unsigned char>(uuid[20]) % 4];
  return uuid;
}

/// @retval -1  errno is ENOENT when there is no such file, EPERM when others may read or write it.
int read_private(const std::string& path, std::string& content) {
  const Posix_Fd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!fd || ::fstat(fd.get(), &status) == -1) return -1;
  if (!S_ISREG(status.st_mode) || !is_private(status)) {
    errno = EPERM;
    return -1;
  }
  std::string text(longest_content, '\0');
  const ssize_t length = ::read(fd.get(), text.data(), text.size());
  if (length == -1) return -1;
  text.resize(static_cast<size_t>(length));
  text.erase(text.find_last_not_of(" \n") + 1);
  if (text.empty()) {
    errno = ENODATA;
    return -1;
  }
  content = std::move(text);
  return 0;
}

/// The file is there whole or not at all, also after a crash.
int write_private(const std::string& path, const std::string& content) {
  const std::string fresh = path + ".new";
  ::unlink(fresh.c_str());
  Posix_Fd fd(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!fd) return -1;
  const std::string line = content + "\n";
  if (::write(fd.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) return -1;
  if (::fsync(fd.get()) == -1) return -1;
  return std::rename(fresh.c_str(), path.c_str());
}

}  // namespace

int State_Dir::open(const std::string& path) {
  struct stat status;
  if (!mkdir_p(path.c_str(), 0700) || ::stat(path.c_str(), &status) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to make the state directory '%C': %m\n"), path.c_str()), -1);
  }
  if (status.st_uid != ::geteuid() || (status.st_mode & 022)) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("The state directory '%C' belongs to or can be written by others.\n"), path.c_str()), -1);
  }
  const std::string lock = path + "/lock";
  lock_.reset(::open(lock.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!lock_) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to open '%C': %m\n"), lock.c_str()), -1);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == -1) {
    lock_.reset();
    if (errno == EWOULDBLOCK) {
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Another agent has the state directory '%C'.\n"), path.c_str()), -1);
    }
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to lock '%C': %m\n"), lock.c_str()), -1);
  }
  path_ = path;
  return 0;
}

int State_Dir::host_uuid(std::string& uuid) const {
  return read_or_make("host_uuid", make_uuid, uuid);
}

int State_Dir::token(std::string& token) const {
  return read_or_make("token", make_token, token);
}

int State_Dir::read_or_make(const std::string& name, std::string (*make)(), std::string& content) const {
  const std::string path = file(name);
  if (read_private(path, content) == 0) return 0;
  if (errno == EPERM) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("'%C' must be a file of the agent's user that no one else may read.\n"), path.c_str()), -1);
  }
  if (errno != ENOENT) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to read '%C': %m\n"), path.c_str()), -1);
  const std::string made = make();
  if (write_private(path, made) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to make '%C': %m\n"), path.c_str()), -1);
  }
  content = made;
  return 0;
}
