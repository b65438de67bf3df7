// The host's I/O layer: the reader refuses links, FIFOs, paths out of the
// tree and files over the cap with a status that says which (kind and
// message); the writer replaces what is at a name without following it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "host/base/file_io.h"
#include "tests/support/test_env.h"

namespace fipsval::testing {
namespace {

using host::StatusKind;

TEST(HostFileIo, TheTreeReaderSaysWhatItRefusedAndNeverFollowsALink) {
  std::filesystem::remove_all("/tmp/t");
  std::filesystem::create_directories("/tmp/t/SHA/req");
  WriteFile("/tmp/t/SHA/req/ok.req", "ok\r\n");
  WriteFile("/tmp/secret", "SECRET\n");
  std::filesystem::create_symlink("/tmp/secret", "/tmp/t/SHA/req/link.req");
  std::filesystem::create_symlink("/tmp/t/SHA", "/tmp/t/LINK");
  ASSERT_EQ(mkfifo("/tmp/t/SHA/req/fifo.req", 0600), 0);
  ASSERT_EQ(truncate("/tmp/t/SHA/req/ok.req", (1 << 20) + 1), 0);
  const struct { const char* path; StatusKind kind; const char* message; } kCases[] = {
      {"SHA/req/ok.req", StatusKind::kRefused, "larger than 1 MiB"},
      {"SHA/req/link.req", StatusKind::kRefused, "it is a symbolic link (not followed)"},
      {"LINK/req/ok.req", StatusKind::kRefused, "LINK/ is a symbolic link (not followed)"},
      {"SHA/req/fifo.req", StatusKind::kRefused, "not a regular file"},
      {"SHA/../SHA/req/ok.req", StatusKind::kRefused, "a path that leaves the tree"},
      {"SHA/req/none.req", StatusKind::kMissing, "No such file or directory"},
      {"AES/req/ok.req", StatusKind::kMissing, "no AES/"},
  };
  for (const auto& c : kCases) {
    std::string content = "untouched";
    const host::Status read = host::ReadTreeFile("/tmp/t", c.path, std::size_t{1} << 20, &content);
    EXPECT_EQ(read.kind(), c.kind) << c.path;
    EXPECT_EQ(read.message(), c.message) << c.path;
    EXPECT_EQ(content.find("SECRET"), std::string::npos);
  }
  ASSERT_EQ(truncate("/tmp/t/SHA/req/ok.req", 4), 0);
  std::string content;
  EXPECT_TRUE(host::ReadTreeFile("/tmp/t", "SHA/req/ok.req", 4, &content).ok());
  EXPECT_EQ(content, "ok\r\n");
}

TEST(HostFileIo, TheWriterReplacesALinkWithoutFollowingIt) {
  WriteFile("/tmp/secret", "SECRET\n");
  std::filesystem::remove_all("/tmp/w");
  std::filesystem::create_directories("/tmp/w");
  std::filesystem::create_symlink("/tmp/secret", "/tmp/w/r.rsp");
  EXPECT_TRUE(host::ReplaceGivenFile("/tmp/w/r.rsp", "answer\r\n", 0644).ok());
  EXPECT_EQ(ReadFile("/tmp/secret"), "SECRET\n");
  EXPECT_FALSE(std::filesystem::is_symlink("/tmp/w/r.rsp"));
  EXPECT_EQ(ReadFile("/tmp/w/r.rsp"), "answer\r\n");
  EXPECT_EQ(std::filesystem::directory_iterator("/tmp/w")->path(), "/tmp/w/r.rsp") << "a temporary file left";
  const host::Status missing = host::ReplaceGivenFile("/tmp/none/r.rsp", "x", 0644);
  EXPECT_EQ(missing.kind(), StatusKind::kMissing);
}

}  // namespace
}  // namespace fipsval::testing
