// zorreg ... edit, watch, backup and restore: a registry's file as a whole.
#include <cstdlib>
#include <filesystem>

#include "support/tool.h"
#include "sysservices/environment.h"
#include "tools/report.h"

namespace {

using namespace std::string_literals;

class FilesTool : public RegistryTest {
 protected:
  void TearDown() override {
    (void)ossEnvironmentSet("VISUAL", nullptr);
    RegistryTest::TearDown();
  }
  // Edits the registry, which held `before`, with a shell command that gets the copy's name.
  ToolRun edit(const std::string& before, const std::string& editor) {
    writeFile(registry(), before);
    (void)ossEnvironmentSet("VISUAL", editor.c_str());
    return runTool("var " + registry() + " edit");
  }
  // Where a message says that the edited copy is kept: its content; it is removed.
  static std::string keptCopy(const std::string& message) {
    const std::size_t at = message.rfind(" in /") + 4;
    const std::string copy = message.substr(at, message.find('\n', at) - at);
    const std::string text = readFile(copy);
    std::filesystem::remove_all(std::filesystem::path(copy).parent_path());
    return text;
  }
};

TEST_F(FilesTool, EditStoresWhatTheEditorMadeOfItAndShowsTheDifference) {
  SKIP_WITHOUT(Need::Devices);
  const std::string name = registry();
  const std::string head = "--- " + name + "\n+++ " + name + "\n";
  const std::string odd = "x = " + std::string(3000, 'y') + "\nz\0 = 1\r\n"s;
  const std::string ten = "a=1\nb=2\nc=3\nd=4\ne=5\nf=6\ng=7\nh=8\ni=9\nj=0\n";
  const struct {
    std::string before, after, diff;
  } cases[] = {
      {"", "a=1\n", "@@ -0,0 +1 @@\n+a=1\n"},
      {"a=1\n", "", "@@ -1 +0,0 @@\n-a=1\n"},
      {"a=1", "a=1\n", "@@ -1 +1 @@\n-a=1\n\\ No newline at end of file\n+a=1\n"},
      {"\n\n" + odd + "a=1\n", odd + "a=2",
       "@@ -1,5 +1,3 @@\n-\n-\n " + odd.substr(0, 3005) + " " + odd.substr(3005) +
           "-a=1\n+a=2\n\\ No newline at end of file\n"},
      {ten, "a=0\n" + ten.substr(4, 36) + "k=1\n",
       "@@ -1,4 +1,4 @@\n-a=1\n+a=0\n b=2\n c=3\n d=4\n"
       "@@ -8,3 +8,4 @@\n h=8\n i=9\n j=0\n+k=1\n"},
      {ten, ten, ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.diff);
    writeFile(path("wanted"), row.after);
    const ToolRun run = edit(row.before, "cp " + path("wanted"));
    EXPECT_EQ(run.status, 0) << run.error;
    std::string shown;  // the tests' tool reads lines without their carriage returns
    for (const char byte : row.diff) shown += byte == '\r' ? "" : std::string(1, byte);
    EXPECT_EQ(run.output, shown.empty() ? name + ": unchanged\n" : head + shown);
    EXPECT_EQ(readFile(name), row.after);
    EXPECT_EQ(files(), "r wanted") << "no companion file stays";
  }
}

TEST_F(FilesTool, AnEditThatMustNotBeStoredChangesNothingAndKeepsTheCopy) {
  SKIP_WITHOUT(Need::Devices);
  const std::string before = "a = 1\nodd\n";
  const struct {
    std::string editor, error, file, copy;
  } cases[] = {
      {"false", "'false' failed", before, ""},
      {"sh -c 'echo b >$0; false'", "failed", before, "b\n"},
      {"sed -i 's/a =/a/'", "line 1: a profile variable line has no \"=\" sign: a 1", before,
       "a 1\nodd\n"},
      {"'" ZORREG_PATH "' var " + registry() + " set c 3; sed -i s/1/2/",
       "changed by another program meanwhile", before + "c = 3\n", "a = 2\nodd\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.editor);
    const ToolRun run = edit(before, row.editor);
    EXPECT_EQ(run.status, zorreg::exitFailed);
    EXPECT_NE(run.error.find(row.error), std::string::npos) << run.error;
    EXPECT_EQ(readFile(registry()), row.file);
    EXPECT_EQ(row.copy.empty() ? "" : keptCopy(run.error), row.copy);
    EXPECT_EQ(files(), "r");
  }
}

TEST_F(FilesTool, BackupAndRestoreAreTheSameBytesOrNothing) {
  const std::string a = frame(variable("a", 1));
  const std::string reversed = "\0\0\0\x24"s + a.substr(4);
  const std::string to = path("to");
  writeFile(backup(), a);  // all that a commit left that crashed
  setPermissions(backup(), 0640);
  expectSteps("bin " + registry() + " ",
              {{"restore " + to, zorreg::exitNotFound, "", to},
               {"backup " + to, 0},
               {"backup " + to, zorreg::exitConflict, "", "--force"},
               {"backup " + lockFile(), zorreg::exitUsage, "", "its updates use"},
               {"backup " + directory_ + " --force", zorreg::exitFailed, "", "no plain file"}});
  EXPECT_EQ(readFile(to), a);
  EXPECT_EQ(permissionsOf(to), keptPermissions(0640));
  EXPECT_EQ(files(), ".r.bkp to");
  expectSteps("bin " + registry() + " ",
              {{"set a 2", 0},
               {"restore " + to, 0, registry() + ": 1 records restored from " + to + "\n"}});
  EXPECT_EQ(readFile(registry()), a);
  writeFile(path("torn"), a + "xxx");
  writeFile(path("text"), "a = 1\n");
  writeFile(path("reversed"), reversed);
  TestRegistry holder(path("held"));
  ASSERT_EQ(holder.LockRegistry(5), 0u);
  expectSteps(
      "bin ",
      {{registry() + " restore " + path("torn"), zorreg::exitFailed, "", "torn: "},
       {registry() + " restore " + path("text"), zorreg::exitFailed, "", "kind var"},
       {registry() + " restore " + path("reversed"), zorreg::exitFailed, "", "--big-endian"},
       {path("held") + " restore " + to + " --no-wait", zorreg::exitBusy, "", "GENREG_RC_BUSY"}});
  EXPECT_EQ(holder.UnlockRegistry(), 0u);
  EXPECT_EQ(readFile(registry()), a);
  expectSteps("bin --big-endian ",
              {{path("new/r") + " restore " + path("reversed"), 0,
                path("new/r") + ": 1 records restored from " + path("reversed") + "\n"}});
  EXPECT_EQ(readFile(path("new/r")), reversed);
  writeFile(to, "old");
  expectSteps("bin " + registry() + " ", {{"backup --force " + to, 0}});
  EXPECT_EQ(readFile(to), a);
  EXPECT_EQ(files(), "new r reversed text to torn");
}

// Every "next" waits for a line, so nothing depends on how long anything takes.
TEST_F(FilesTool, WatchPrintsEachCommittedChangeOnceUntilItIsEnded) {
  SKIP_WITHOUT(Need::Devices);
  writeFile(path("script"), "cd " + directory_ + " && z='" ZORREG_PATH "'\n" + R"(
exec >said 2>&1; mkfifo f; next() { read -r line <&3; echo "$line"; }
"$z" bin r watch --json >f 2>&1 & p=$!; exec 3<f; next
"$z" bin r set a 1; next; "$z" bin r set a 2 --comment c; next; cp r kept
printf x >>r; next; next; "$z" bin r repair >/dev/null; "$z" bin r unset a; next
cp kept r; next; rm r; next; "$z" bin r set b 3; next; kill $p; wait $p; echo $?
{ "$z" bin r watch 2>&1; echo $? >status; } | head -1; cat status
"$z" bin r watch 2>&1 | { read -r line; "$z" bin r set b 4; read -r line; echo "$line"; }
)");
  ASSERT_EQ(std::system(("timeout 60 sh " + path("script")).c_str()), 0);
  const std::string a = R"("record":{"name":"a","value":2,"comment":"c"})";
  EXPECT_EQ(readFile(path("said")),
            R"(watching r
{"change":"added","record":{"name":"a","value":1}}
{"change":"changed",)" + a + R"(,"before":{"name":"a","value":1}}
zorreg: GENREG_RC_READ_FAILED (0x900001CD): a record cannot be read
zorreg: r: a record cannot be read: a stored record's length runs past the end of the file
{"change":"removed",)" + a + R"(}
{"change":"added",)" + a + R"(}
{"change":"removed",)" + a + R"(}
{"change":"added","record":{"name":"b","value":3}}
0
watching r
0
changed  b  4
)");
}

}  // namespace
