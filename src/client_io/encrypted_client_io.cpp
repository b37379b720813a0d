#include "client_io/encrypted_client_io.h"

#include <cerrno>
#include <new>

#include "ace/Log_Msg.h"
#include "client_io/encrypted_layout.h"
#include "client_io/encrypted_reader.h"
#include "client_io/encrypted_writer.h"

using namespace client_io;

Encrypted_Client_IO::Encrypted_Client_IO(std::unique_ptr<Client_IO_Base> next, Pool_Encryption encryption)
    : next_(std::move(next)), keys_(std::move(encryption)) {}

Encrypted_Client_IO::~Encrypted_Client_IO() = default;

bool Encrypted_Client_IO::start() {
  if (keys_.open()) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get cipher %d from OpenSSL.\n"), keys_.cipher()));
  return false;
}

std::unique_ptr<Client_IO_Base::Writer> Encrypted_Client_IO::create(const std::string& key) {
  std::unique_ptr<Writer> next = next_->create(key);
  if (!next) return nullptr;
  std::unique_ptr<Encrypted_Writer> writer(new (std::nothrow) Encrypted_Writer(std::move(next), keys_, key, canceled_));
  if (!writer) errno = ENOMEM;
  if (writer && writer->begin()) return writer;
  return nullptr;
}

std::unique_ptr<Client_IO_Base::Reader> Encrypted_Client_IO::open(const std::string& key) {
  std::unique_ptr<Reader> next = next_->open(key);
  if (!next) return nullptr;
  std::unique_ptr<Encrypted_Reader> reader(new (std::nothrow) Encrypted_Reader(std::move(next), keys_, key, canceled_));
  if (!reader) errno = ENOMEM;
  if (reader && reader->begin()) return reader;
  return nullptr;
}

bool Encrypted_Client_IO::list(const std::string& prefix, const List_Callback& each) {
  return next_->list(prefix, [&](const Object_Info& info) {
    return each({info.key, Encrypted_Layout(keys_.cipher(), info.size).plain_size()});
  });
}

void Encrypted_Client_IO::cancel() {
  canceled_ = true;
  next_->cancel();
}
