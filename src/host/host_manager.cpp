#include "host/host_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "ace/Log_Msg.h"
#include "host/rsa_key.h"
#include "kolt/posix_fd.h"
#include "kolt/trusted_file.h"

namespace {

constexpr int shortest_key_bits = 2048;
constexpr std::size_t longest_file = 64 * 1024;

bool read_all(int fd, Host_Manager::key_type& content) {
  content.resize(longest_file);
  std::size_t size = 0;
  while (size < content.size()) {
    const ssize_t length = ::read(fd, content.data() + size, content.size() - size);
    if (length == -1) return false;
    if (length == 0) break;
    size += static_cast<std::size_t>(length);
  }
  content.resize(size);
  return true;
}

/// @return false with one line at LM_ERROR.
bool read_private_file(const std::string& path, Host_Manager::key_type& content) {
  if (!is_trusted_file(path)) return false;
  const Posix_Fd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!fd || ::fstat(fd.get(), &status) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to open the host key '%C': %m\n"), path.c_str()), false);
  }
  if (!S_ISREG(status.st_mode) || (status.st_mode & 077) != 0) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("The host key '%C' is refused: others may access it (mode %o).\n"),
                      path.c_str(), static_cast<unsigned>(status.st_mode & 07777)),
                     false);
  }
  if (!read_all(fd.get(), content)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to read the host key '%C': %m\n"), path.c_str()), false);
  }
  return true;
}

}  // namespace

Host_Manager* Host_Manager::instance() {
  static Host_Manager manager;
  return &manager;
}

bool Host_Manager::load_rsa_prvkey(const std::string& path) {
  key_type content;
  if (!read_private_file(path, content)) return false;
  const RSA_Key_ptr key = read_rsa_private_key(content.data(), content.size());
  const int bits = key ? EVP_PKEY_get_bits(key.get()) : 0;
  if (bits < shortest_key_bits) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("'%C' holds no RSA private key of at least %d bits without a pass phrase.\n"),
                      path.c_str(), shortest_key_bits),
                     false);
  }
  rsa_prvkey_ = std::move(content);
  ACE_DEBUG((LM_INFO, ACE_TEXT("Host key with %d bits loaded from '%C'.\n"), bits, path.c_str()));
  return true;
}
