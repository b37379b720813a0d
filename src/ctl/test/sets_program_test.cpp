// What the program itself adds to the commands on sets: its log, its descriptors.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "ctl/test/sets_fixture.h"
#include "kolt/posix_fd.h"

namespace {

using ctl_test::Sets_Fixture;
using ::testing::HasSubstr;

class Sets_Program : public Sets_Fixture {
 protected:
  void make_socket(const std::string& name) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const Posix_Fd directory(::open(source_.c_str(), O_PATH));
    const std::string path = "/proc/self/fd/" + std::to_string(directory.get()) + "/" + name;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const Posix_Fd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  std::string program(const std::string& arguments) const {
    return "'" CTL_PROGRAM "' sets " + arguments + " --pool '" + pool_ + "'";
  }
};

TEST_F(Sets_Program, What_an_export_leaves_out_is_named) {
  write("file", "x");
  make_socket("socket");
  ASSERT_TRUE(back_up());
  EXPECT_THAT(shell("(" + program("export data --format tar '" + (dir_ / "set.tar") + "'") + ") 2>&1; test $? = 1"),
              HasSubstr(source_ + "/socket is left out: there is no place for a socket.\n"));
}

TEST_F(Sets_Program, A_closed_standard_output_does_not_become_the_export) {
  write("file", "x");
  ASSERT_TRUE(back_up());
  for (const char* closed : {">&-", "<&- >&-", "<&- >&- 2>&-"}) {
    const std::string archive = dir_ / "set.tar";
    shell("(" + program("export data --format tar '" + archive + "'") + ") " + closed + "; true");
    EXPECT_EQ(std::filesystem::file_size(archive) % 10240, 0u) << closed;
    EXPECT_THAT(shell("tar -tf '" + archive + "'"), HasSubstr("/file\n"));
    std::filesystem::remove(archive);
  }
}

}  // namespace
