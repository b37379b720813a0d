#include <cerrno>
#include <thread>

#include "client_io/client_io_factory.h"
#include "client_io/test/s3_fixture.h"
#include "support/fake_clock.h"
#include "support/s3rver.h"
#include "support/temp_dir.h"

namespace {

using test_support::S3_Call;
using test_support::s3_error;
using test_support::S3_Reply;
using test_support::S3rver;

class S3_Client : public S3_Fixture {
 protected:
  S3_Call last_call(const std::string& method) {
    S3_Call found;
    for (const S3_Call& call : service_.calls())
      if (call.method == method) found = call;
    return found;
  }

  std::vector<std::string> keys(Client_IO_Base& client) {
    std::vector<std::string> found;
    EXPECT_TRUE(client.list("", [&](const Client_IO_Base::Object_Info& info) {
      found.push_back(info.key);
      return true;
    }));
    return found;
  }
};

TEST_F(S3_Client, ObjectsLieBelowPrefixAndRoot) {
  EXPECT_TRUE(store(*client(), "set/a b+c", "bytes"));
  EXPECT_EQ(service_.objects().at("pool/root/set/a b+c").bytes, "bytes");
}

TEST_F(S3_Client, NothingIsSentBeforeTheFirstObject) {
  const auto one = client();
  const auto writer = one->create("a");
  EXPECT_TRUE(writer && writer->write("x", 1));
  EXPECT_TRUE(service_.calls().empty());
}

TEST_F(S3_Client, AnObjectOfOnePartIsOnePut) {
  EXPECT_TRUE(store(*client(), "a", mebibytes(8)));
  EXPECT_EQ(service_.count("PUT"), 1u);
  EXPECT_EQ(service_.count("POST"), 0u);
}

TEST_F(S3_Client, ALargerObjectIsSentInParts) {
  const std::string bytes = mebibytes(20);
  const auto one = client();
  ASSERT_TRUE(store(*one, "a", bytes));
  EXPECT_EQ(service_.count("PUT", "partNumber="), 3u);
  EXPECT_EQ(service_.count("POST"), 2u);
  EXPECT_EQ(service_.uploads().size(), 0u);
  EXPECT_EQ(fetch(*one, "a"), bytes);
}

TEST_F(S3_Client, WritesOfAnySizeMakeTheSameParts) {
  const std::string bytes = mebibytes(17);
  const auto one = client();
  const auto writer = one->create("a");
  ASSERT_TRUE(writer);
  for (size_t at = 0; at < bytes.size(); at += 777777)
    ASSERT_TRUE(writer->write(bytes.data() + at, std::min<size_t>(777777, bytes.size() - at)));
  EXPECT_EQ(writer->size(), bytes.size());
  ASSERT_TRUE(writer->commit());
  EXPECT_EQ(service_.count("PUT", "partNumber="), 3u);
  EXPECT_EQ(fetch(*one, "a"), bytes);
}

TEST_F(S3_Client, PartsThatWereSentAreInvisibleAndAreTakenBack) {
  const auto one = client();
  auto writer = one->create("a");
  const std::string bytes = mebibytes(20);
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  EXPECT_EQ(service_.uploads().size(), 1u);
  EXPECT_EQ(keys(*one), std::vector<std::string>{});
  writer.reset();
  EXPECT_EQ(service_.uploads().size(), 0u);
  EXPECT_EQ(service_.objects().size(), 0u);
}

TEST_F(S3_Client, AfterItsEndAWriterTakesNothing) {
  const auto one = client();
  const auto writer = one->create("a");
  ASSERT_TRUE(writer && writer->write("x", 1) && writer->commit());
  EXPECT_FALSE(writer->write("y", 1));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(service_.objects().at("pool/root/a").bytes, "x");
}

TEST_F(S3_Client, EveryBodyIsSentWithItsHashes) {
  EXPECT_TRUE(store(*client(), "a", mebibytes(9)));
  EXPECT_GE(service_.calls().size(), 4u);  // the upload, its two parts, its end
  for (const S3_Call& call : service_.calls()) {
    EXPECT_EQ(call.message.header("x-amz-content-sha256").size(), 64u) << call.message.head;
    EXPECT_EQ(call.message.header("content-md5").size(), call.method == "PUT" ? 24u : 0u);
  }
}

TEST_F(S3_Client, WithoutOverwriteTheObjectIsMadeOnCondition) {
  EXPECT_TRUE(store(*client(), "a", "x"));
  EXPECT_EQ(last_call("PUT").message.header("if-none-match"), "*");
  options_.overwrite = true;
  EXPECT_TRUE(store(*client(), "a", "y"));
  EXPECT_EQ(last_call("PUT").message.header("if-none-match"), "");
  EXPECT_EQ(service_.objects().at("pool/root/a").bytes, "y");
}

TEST_F(S3_Client, AnObjectThatAppearsAfterTheLookIsNotReplaced) {
  service_.script([this](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method == "PUT") service_.put("pool/root/a", "first");
    return {};
  });
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", "second"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(service_.objects().at("pool/root/a").bytes, "first");
  EXPECT_TRUE(log.has(LM_ERROR,
                      "Failed to commit object \"a\" in \"s3://bucket/pool/root/\": File exists (412 "
                      "PreconditionFailed).\n"))
      << log.all();
}

TEST_F(S3_Client, TheLastRequestOfAnUploadHasTheSameCondition) {
  service_.script([this](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method == "POST" && call.query.starts_with("uploadId")) service_.put("pool/root/a", "first");
    return {};
  });
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", mebibytes(9)));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(service_.objects().at("pool/root/a").bytes, "first");
  EXPECT_EQ(service_.uploads().size(), 0u);
}

TEST_F(S3_Client, AServiceWithoutTheConditionIsAskedWithoutIt) {
  service_.script([](const S3_Call& call) -> std::optional<S3_Reply> {
    if (!call.message.header("if-none-match").empty()) return s3_error(501, "NotImplemented");
    return {};
  });
  const auto one = client();
  EXPECT_TRUE(store(*one, "a", "x"));
  EXPECT_TRUE(store(*one, "b", mebibytes(9)));
  Log_Capture log;
  EXPECT_FALSE(store(*one, "a", "y"));
  EXPECT_EQ(errno, EEXIST);
}

TEST_F(S3_Client, SmallObjectsAreReadWhenTheyAreOpened) {
  const auto one = client();
  service_.put("pool/root/a", std::string(65536, 'x'));
  const auto reader = one->open("a");
  ASSERT_TRUE(reader);
  const size_t calls = service_.calls().size();
  char byte;
  EXPECT_EQ(reader->read(65535, &byte, 1), 1);
  EXPECT_EQ(service_.calls().size(), calls);
}

TEST_F(S3_Client, ALargeObjectThatWasReplacedIsNotRead) {
  const auto one = client();
  service_.put("pool/root/a", mebibytes(1));
  const auto reader = one->open("a");
  ASSERT_TRUE(reader);
  service_.put("pool/root/a", mebibytes(2));
  Log_Capture log;
  char byte;
  EXPECT_EQ(reader->read(0, &byte, 1), -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_TRUE(log.has(LM_ERROR,
                      "Failed to read object \"a\" in \"s3://bucket/pool/root/\": Stale file handle (412 "
                      "PreconditionFailed).\n"))
      << log.all();
}

TEST_F(S3_Client, AServiceThatIgnoresIfMatchIsFoundOut) {
  const auto one = client();
  service_.put("pool/root/a", mebibytes(1));
  const auto reader = one->open("a");
  ASSERT_TRUE(reader);
  service_.script([](const S3_Call&) {
    return S3_Reply{206, {{"ETag", "\"other\""}, {"Content-Range", "bytes 0-0/1048576"}}, "x"};
  });
  Log_Capture log;
  char byte;
  EXPECT_EQ(reader->read(0, &byte, 1), -1);
  EXPECT_EQ(errno, ESTALE);
}

TEST_F(S3_Client, AServiceThatIgnoresRangesIsFoundOut) {
  const auto one = client();
  service_.put("pool/root/a", mebibytes(1));
  const std::string etag = service_.objects().at("pool/root/a").etag;
  const auto reader = one->open("a");
  ASSERT_TRUE(reader);
  Log_Capture log;
  char bytes[10];
  service_.script([&](const S3_Call&) { return S3_Reply{200, {{"ETag", etag}}, "0123456789"}; });
  EXPECT_EQ(reader->read(5, bytes, 10), -1);
  EXPECT_EQ(errno, EIO);
  service_.script([&](const S3_Call&) { return S3_Reply{200, {{"ETag", etag}}, mebibytes(1)}; });
  EXPECT_EQ(reader->read(5, bytes, 10), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 2u) << log.all();
}

TEST_F(S3_Client, ListingsGoOnOverPages) {
  service_.page_size(3);
  std::vector<std::string> expected;
  for (int i = 100; i < 110; ++i) {
    service_.put("pool/root/k " + std::to_string(i), "x");
    expected.push_back("k " + std::to_string(i));
  }
  service_.put("pool/other/k", "x");
  EXPECT_EQ(keys(*client()), expected);
  EXPECT_EQ(service_.count("GET", "continuation-token="), 3u);
}

TEST_F(S3_Client, NamesThatAreNoKeysAreNotListed) {
  for (const char* name :
       {"pool/root/", "pool/root/dir/", "pool/root/a//b", "pool/root/\xe2\x82\xac", "pool/root/a\nb"})
    service_.put(name, "");
  service_.put("pool/root/k", "x");
  EXPECT_EQ(keys(*client()), std::vector<std::string>{"k"});
}

TEST_F(S3_Client, AListingOutOfOrderIsNotTaken) {
  int page = 0;
  service_.script([&](const S3_Call&) {
    const std::string key = ++page == 1 ? "b" : "a";
    return S3_Reply{200,
                    {},
                    "<ListBucketResult><Contents><Key>pool/root/" + key +
                        "</Key><Size>1</Size></Contents><IsTruncated>true</IsTruncated><NextContinuationToken>" + key +
                        "</NextContinuationToken></ListBucketResult>"};
  });
  Log_Capture log;
  EXPECT_FALSE(client()->list("", [](const Client_IO_Base::Object_Info&) { return true; }));
  EXPECT_EQ(errno, EIO);
  EXPECT_TRUE(
      log.has(LM_ERROR,
              "Failed to list object \"\" in \"s3://bucket/pool/root/\": Input/output error (the service lists in "
              "another order).\n"))
      << log.all();
}

// Whoever asked for the objects of one set may be about to remove them.
TEST_F(S3_Client, AServiceThatIgnoresThePrefixIsFoundOut) {
  const auto body = [](const std::string& result, const std::string& element, const std::string& more) {
    return "<" + result + "><" + element + "><Key>pool/root/set2/a</Key>" + more + "</" + element +
           "><IsTruncated>false</IsTruncated></" + result + ">";
  };
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.parameters.count("list-type") != 0)
      return S3_Reply{200, {}, body("ListBucketResult", "Contents", "<Size>1</Size>")};
    return S3_Reply{200,
                    {},
                    body("ListMultipartUploadsResult", "Upload",
                         "<UploadId>id</UploadId><Initiated>2020-01-01T00:00:00.000Z</Initiated>")};
  });
  const auto one = client();
  Log_Capture log;
  int shown = 0;
  EXPECT_FALSE(one->list("set1/", [&](const Client_IO_Base::Object_Info&) { return ++shown; }));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(shown, 0);
  EXPECT_EQ(
      log.texts(LM_ERROR),
      std::vector<std::string>{"Failed to list object \"set1/\" in \"s3://bucket/pool/root/\": Input/output error "
                               "(the service lists what was not asked for).\n"});
  EXPECT_TRUE(one->sweep("set1/"));
  EXPECT_EQ(service_.count("DELETE"), 0u);
}

TEST_F(S3_Client, AnEmptyAnswerIsNoEmptyList) {
  options_.max_seconds_retry = 0;
  for (const char* body : {"", "<Other/>", "<ListBucketResult>"}) {
    service_.script([&](const S3_Call&) { return S3_Reply{200, {}, body}; });
    Log_Capture log;
    EXPECT_FALSE(client()->list("", [](const Client_IO_Base::Object_Info&) { return true; }));
    EXPECT_EQ(errno, EIO);
  }
}

TEST_F(S3_Client, ABucketThatIsMissingIsNoEmptyPool) {
  pool_.url = "s3://nothing/pool";
  Log_Capture log;
  const auto one = client();
  EXPECT_FALSE(one->list("", [](const Client_IO_Base::Object_Info&) { return true; }));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(one->remove("a"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(one->sweep(""));
  EXPECT_EQ(log.texts(LM_ERROR),
            (std::vector<std::string>{
                "Failed to list object \"\" in \"s3://nothing/pool/root/\": No such file or directory (404 "
                "NoSuchBucket).\n",
                "Failed to remove object \"a\" in \"s3://nothing/pool/root/\": No such file or directory (404 "
                "NoSuchBucket).\n",
                "Failed to sweep object \"\" in \"s3://nothing/pool/root/\": No such file or directory (404 "
                "NoSuchBucket).\n"}));
}

TEST_F(S3_Client, SweepAbortsOldUploadsOfOthersBelowThePrefix) {
  service_.page_size(2);
  for (int i = 0; i < 5; ++i) service_.begin_upload("pool/root/set/" + std::to_string(i), "dead-" + std::to_string(i));
  service_.begin_upload("pool/root/set/0", "dead-again");
  service_.begin_upload("pool/root/other/0", "elsewhere");
  service_.begin_upload("pool/roots", "not ours");
  EXPECT_TRUE(client()->sweep("set/"));
  const auto left = service_.uploads();
  EXPECT_EQ(left.size(), 2u);
  EXPECT_EQ(left.count("elsewhere") + left.count("not ours"), 2u);
}

TEST_F(S3_Client, SweepLeavesUploadsOfOthersAloneForADay) {
  const test_support::Fake_Clock clock(1'700'000'000);  // 2023-11-14T22:13:20Z
  service_.begin_upload("pool/root/a", "old", "2023-11-13T22:13:19.000Z");
  service_.begin_upload("pool/root/b", "young", "2023-11-13T22:13:20.000Z");
  service_.begin_upload("pool/root/c", "of no known age", "");
  EXPECT_TRUE(client()->sweep(""));
  EXPECT_EQ(service_.uploads().size(), 2u);
  EXPECT_EQ(service_.uploads().count("old"), 0u);
}

TEST_F(S3_Client, SweepAbortsAnUploadOfThisProcessThatCouldNotBeAborted) {
  const auto one = client();
  const std::string bytes = mebibytes(9);
  auto writer = one->create("set/a");
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  service_.script([](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method == "DELETE") return s3_error(403, "AccessDenied");
    return {};
  });
  writer.reset();
  EXPECT_FALSE(one->sweep(""));
  EXPECT_EQ(service_.uploads().size(), 1u);
  service_.script({});
  EXPECT_TRUE(one->sweep(""));
  EXPECT_EQ(service_.uploads().size(), 0u);
}

TEST_F(S3_Client, SweepLeavesTheUploadsOfThisProcessAlone) {
  const auto one = client();
  const auto writer = one->create("set/a");
  const std::string bytes = mebibytes(9);
  ASSERT_TRUE(writer && writer->write(bytes.data(), bytes.size()));
  EXPECT_TRUE(client()->sweep(""));
  EXPECT_EQ(service_.uploads().size(), 1u);
  EXPECT_TRUE(writer->commit());
  service_.begin_upload("pool/root/set/a", "dead");
  EXPECT_TRUE(one->sweep(""));
  EXPECT_EQ(service_.uploads().size(), 0u);
}

TEST_F(S3_Client, AServiceThatListsNoUploadsHasNothingToSweep) {
  service_.script([](const S3_Call&) { return s3_error(501, "NotImplemented"); });
  Log_Capture log;
  EXPECT_TRUE(client()->sweep(""));
  EXPECT_EQ(log.all(), "");
}

TEST_F(S3_Client, ANameThatIsTooLongIsRefused) {
  std::string key = std::string(255, 'x');
  while (key.size() < 900) key += "/" + std::string(200, 'y');
  const std::string fits = key.substr(0, 1024 - std::string("pool/root/").size());
  const auto one = client();
  EXPECT_TRUE(one->create(fits));
  Log_Capture log;
  EXPECT_EQ(one->create(fits + "z"), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u);
}

TEST_F(S3_Client, TokenTenantAndCipherAreSent) {
  pool_.default_s3["session_token"] = "token";
  pool_.server_side_encryption = true;
  options_.set_extra_option("X-Access-Key", "tenant");
  const auto one = client();
  EXPECT_TRUE(store(*one, "a", "x"));
  EXPECT_TRUE(store(*one, "b", mebibytes(9)));
  EXPECT_GE(service_.calls().size(), 5u);
  for (const S3_Call& call : service_.calls()) {
    EXPECT_EQ(call.message.header("x-amz-security-token"), "token");
    EXPECT_EQ(call.message.header("x-access-key"), "tenant");
    const bool makes = (call.method == "PUT" && call.query.empty()) || call.query == "uploads=";
    EXPECT_EQ(call.message.header("x-amz-server-side-encryption"), makes ? "AES256" : "") << call.message.head;
  }
}

TEST_F(S3_Client, ARefusalIsFinalAndToldWithoutSecrets) {
  pool_.default_s3["secret_access_key"] = "canary-secret";
  pool_.default_s3["session_token"] = "canary-token";
  options_.set_extra_option("X-Access-Key", "canary-tenant");
  const auto one = client();
  Log_Capture log;
  EXPECT_EQ(one->open("a"), nullptr);
  EXPECT_EQ(errno, EACCES);
  EXPECT_FALSE(store(*one, "a", "x"));
  EXPECT_EQ(errno, EACCES);
  EXPECT_FALSE(one->list("", [](const Client_IO_Base::Object_Info&) { return true; }));
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 3u) << log.all();
  EXPECT_TRUE(log.has(LM_ERROR,
                      "Failed to list object \"\" in \"s3://bucket/pool/root/\": Permission denied (403 "
                      "SignatureDoesNotMatch).\n"))
      << log.all();
  EXPECT_EQ(log.all().find("canary"), std::string::npos);
  EXPECT_EQ(log.all().find("Signature="), std::string::npos);
}

TEST_F(S3_Client, RedirectsAreNotFollowed) {
  test_support::Fake_S3 other;
  service_.script([&](const S3_Call& call) { return S3_Reply{307, {{"Location", other.endpoint() + call.path}}, ""}; });
  Log_Capture log;
  EXPECT_EQ(client()->open("a"), nullptr);
  EXPECT_EQ(errno, EREMOTE);
  EXPECT_TRUE(other.calls().empty());
}

TEST_F(S3_Client, WhatTheServiceSaysBecomesErrno) {
  struct Row {
    int status;
    const char* code;
    int error;
  };
  for (const Row& row : {Row{507, "", ENOSPC}, Row{403, "QuotaExceeded", EDQUOT}, Row{400, "InvalidRequest", EINVAL}}) {
    service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
      if (call.method == "PUT") return s3_error(row.status, row.code);
      return {};
    });
    Log_Capture log;
    EXPECT_FALSE(store(*client(), "a", "x"));
    EXPECT_EQ(errno, row.error);
    EXPECT_EQ(log.texts(LM_ERROR).size(), 1u);
  }
}

TEST_F(S3_Client, TheFactoryMakesIt) {
  const auto made = make_client_io(pool_, "/host/resource", options_);
  ASSERT_TRUE(made);
  EXPECT_TRUE(store(*made, "a", "x"));
  EXPECT_EQ(service_.objects().count("pool/host/resource/a"), 1u);
}

TEST_F(S3_Client, TheFactoryPutsTheLimitsBeforeIt) {
  options_.rate_limits.dest_rate_limits = {{0, 86400, size_t(1) << 40}};
  const auto made = make_client_io(pool_, "host", options_);
  ASSERT_TRUE(made);
  EXPECT_TRUE(store(*made, "a", "x"));
  EXPECT_EQ(service_.objects().count("pool/host/a"), 1u);
}

// Against the service of others.

class S3_Client_On_S3rver : public S3_Fixture {
 protected:
  void SetUp() override {
    if (!S3rver::missing().empty()) GTEST_SKIP() << S3rver::missing();
    pool_.default_s3 = {{"access_key_id", "S3RVER"}, {"secret_access_key", "S3RVER"}};
  }
};

TEST_F(S3_Client_On_S3rver, LargeObjectsGoThereAndBack) {
  const S3rver service;
  pool_.default_s3["endpoint"] = service.endpoint();
  const std::string bytes = mebibytes(30);
  const auto one = client();
  ASSERT_TRUE(store(*one, "set/a", bytes));
  EXPECT_EQ(fetch(*one, "set/a"), bytes);
}

TEST_F(S3_Client_On_S3rver, MoreThanAPageIsListed) {
  const S3rver service;
  pool_.default_s3["endpoint"] = service.endpoint();
  options_.overwrite = true;  // one request for each
  const auto one = client();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, i] {
      for (int n = 0; n < 255; ++n) EXPECT_TRUE(store(*one, std::to_string(1000 + n * 4 + i), "x"));
    });
  for (std::thread& thread : threads) thread.join();
  int next = 1000;
  EXPECT_TRUE(
      one->list("", [&](const Client_IO_Base::Object_Info& info) { return info.key == std::to_string(next++); }));
  EXPECT_EQ(next, 2020);
}

// Names below "localhost" are this machine.
TEST_F(S3_Client_On_S3rver, TheBucketMayStandInTheHostName) {
  const S3rver service({"--service-endpoint", "localhost"});
  pool_.default_s3["endpoint"] = "http://s3.localhost:" + std::to_string(service.port());
  pool_.default_s3["path_style"] = "false";
  const auto one = client();
  ASSERT_TRUE(store(*one, "a", "bytes"));
  pool_.default_s3["endpoint"] = service.endpoint();
  pool_.default_s3["path_style"] = "true";
  EXPECT_EQ(fetch(*client(), "a"), "bytes");
}

class S3_Client_Over_Tls : public S3_Client_On_S3rver {
 protected:
  /// Makes key and certificate of a server that answers to @a name.
  void make_certificate(const std::string& name) {
    const std::string command =
        "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=test -addext subjectAltName=" + name +
        " -keyout " + (dir_ / "key") + " -out " + (dir_ / "cert") + " 2>/dev/null";
    ASSERT_EQ(system(command.c_str()), 0);
  }
  void use(const S3rver& service) {
    pool_.default_s3["endpoint"] = "https://127.0.0.1:" + std::to_string(service.port());
  }

  const test_support::Temp_Dir dir_;
};

TEST_F(S3_Client_Over_Tls, ACAOfItsOwnIsTrusted) {
  make_certificate("IP:127.0.0.1");
  const S3rver service({"--key", dir_ / "key", "--cert", dir_ / "cert"});
  use(service);
  pool_.default_s3["ca_file"] = dir_ / "cert";
  const auto one = client();
  EXPECT_TRUE(store(*one, "a", "bytes"));
  EXPECT_EQ(fetch(*one, "a"), "bytes");
}

TEST_F(S3_Client_Over_Tls, WhoIsNotTrustedIsRefusedAtOnce) {
  make_certificate("IP:127.0.0.1");
  const S3rver service({"--key", dir_ / "key", "--cert", dir_ / "cert"});
  use(service);
  Log_Capture log;
  EXPECT_FALSE(store(*client(), "a", "bytes"));
  EXPECT_EQ(errno, EACCES);
  pool_.default_s3["ca_file"] = dir_ / "no such file";
  EXPECT_EQ(client()->open("a"), nullptr);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(
      log.texts(LM_ERROR),
      (std::vector<std::string>{
          "Failed to commit object \"a\" in \"s3://bucket/pool/root/\": Permission denied (the server's certificate "
          "is not trusted).\n",
          "Failed to open object \"a\" in \"s3://bucket/pool/root/\": Permission denied (the server's certificate is "
          "not trusted).\n"}));
}

TEST_F(S3_Client_Over_Tls, AnotherNameIsRefusedAtOnce) {
  make_certificate("IP:127.0.0.2");
  const S3rver service({"--key", dir_ / "key", "--cert", dir_ / "cert"});
  use(service);
  pool_.default_s3["ca_file"] = dir_ / "cert";
  Log_Capture log;
  EXPECT_EQ(client()->open("a"), nullptr);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(log.lines().size(), 1u) << log.all();
}

}  // namespace
