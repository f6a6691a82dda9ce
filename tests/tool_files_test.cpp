// zorreg ... edit, watch, backup and restore: a registry's file as a whole.
#include <cstdlib>
#include <filesystem>

#include "support/tool.h"
#include "sysservices/environment.h"
#include "tools/report.h"

namespace {

using namespace std::string_literals;
using namespace tool;

class FilesTool : public RegistryTest {};

TEST_F(FilesTool, EditStoresAllThatTheEditorMadeOfItOrNothing) {
  SKIP_WITHOUT(Need::Devices);
  const std::string odd = "x = " + std::string(3000, 'y') + "\nz\0 = 1\r\n"s;
  const std::string ten = "a=1\nb=\nc=\nd=\ne=\nf=\ng=\nh=\ni=\nj=\n";
  const std::string lines = "a = 1\nodd\n";
  const struct {
    std::string before, editor, shown;  // the difference, or a part of the message
    std::string after, copy = "";       // what is kept when it is not stored
  } cases[] = {
      {"a=1\n", "true", "unchanged\n", "a=1\n"},
      {"", "sh -c 'echo a= >$0'", "+++ " + registry() + "\n@@ -0,0 +1 @@\n+a=\n", "a=\n"},
      {"a", "sh -c 'echo a= >$0'", "@@ -1 +1 @@\n-a\n\\ No newline at end of file\n+a=\n", "a=\n"},
      {"\n\n" + odd + "a=1", "sed -i 1,2d", "@@ -1,5 +1,3 @@\n-\n-\n x = yyy", odd + "a=1"},
      {ten, "sed -i 's/1/0/; $ a k='",
       "@@ -1,4 +1,4 @@\n-a=1\n+a=0\n b=\n c=\n d=\n@@ -8,3 +8,4 @@\n h=\n i=\n j=\n+k=\n",
       "a=0\n" + ten.substr(4) + "k=\n"},
      {lines, "sh -c 'echo b >$0; false'", "failed", lines, "b\n"},
      {lines, "sed -i 's/a =/a/'", "line 1: a profile variable line", lines, "a 1\nodd\n"},
      {lines, "'" ZORREG_PATH "' var " + registry() + " set c 3; sed -i s/1/2/",
       "changed by another program meanwhile", lines + "c = 3\n", "a = 2\nodd\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.editor);
    writeFile(registry(), row.before);
    (void)ossEnvironmentSet("VISUAL", row.editor.c_str());
    const ToolRun run = runTool("var " + registry() + " edit --verbose");
    EXPECT_EQ(run.status, row.before == lines ? exitFailed : exitDone) << run.error;
    EXPECT_NE((run.output + run.error).find(row.shown), std::string::npos) << run.error;
    EXPECT_EQ(readFile(registry()), row.after);
    EXPECT_EQ(files(), "r") << "no companion file stays";
    if (row.copy.empty()) continue;
    const std::string copy = run.error.substr(run.error.rfind(" in /") + 4);
    EXPECT_EQ(readFile(copy.substr(0, copy.size() - 1)), row.copy);
    std::filesystem::remove_all(std::filesystem::path(copy).parent_path());
  }
}

TEST_F(FilesTool, BackupAndRestoreAreTheSameBytesOrNothing) {
  const std::string a = frame(variable("a", 1));
  const std::string r = registry();
  const std::string to = path("to");
  writeFile(backup(), a);  // all that a commit left that crashed
  setPermissions(backup(), 0640);
  writeFile(path("torn"), a + "x");
  writeFile(path("text"), "a = 1\n");
  TestRegistry holder(path("held"));
  ASSERT_EQ(holder.LockRegistry(5), 0u);
  const std::string restored = ": 1 records restored from " + to + "\n";
  expectSteps("bin ",
              {{r + " restore " + to, exitNotFound, "", to},
               {r + " backup " + to, 0},
               {r + " backup " + to, exitConflict, "", "--force"},
               {r + " backup " + lockFile(), exitUsage, "", "its updates use"},
               {r + " backup --force " + directory_, exitFailed, "", "no plain file"},
               {directory_ + " backup " + path("none"), exitFailed, "", directory_},
               {r + " set a 2", 0},
               {r + " restore " + path("torn"), exitFailed, "", "torn: "},
               {r + " restore " + path("text"), exitFailed, "", "kind var"},
               {path("held") + " restore " + to + " --no-wait", exitBusy, "", "GENREG_RC_BUSY"},
               {r + " restore " + to, 0, r + restored},
               {r + " backup --force " + path("text"), 0},
               {path("new/r") + " restore " + to, 0, path("new/r") + restored}});
  EXPECT_EQ(holder.UnlockRegistry(), 0u);
  for (const char* file : {"to", "r", "text", "new/r"}) EXPECT_EQ(readFile(path(file)), a);
  EXPECT_EQ(permissionsOf(to), keptPermissions(0640));
  EXPECT_EQ(files(), "new r text to torn");
}

// Every "next" waits for a line, so nothing depends on how long anything takes.
TEST_F(FilesTool, WatchPrintsEachCommittedChangeOnceUntilItIsEnded) {
  SKIP_WITHOUT(Need::Devices);
  writeFile(path("script"), "cd " + directory_ + " && z='" ZORREG_PATH "'\n" + R"(
exec >said 2>&1; mkfifo f; damage() { read -r line <&3; echo "${line%% *}"; }
next() { while damage >/dev/null; do case $line in zorreg:*) ;; *) break ;; esac; done; echo "$line"; }
"$z" bin r watch --json >f 2>&1 & p=$!; exec 3<f; next
"$z" bin r set a 1; next; "$z" bin r set a 2 --comment c; next; cp r kept
printf x >>r; damage; "$z" bin r repair >/dev/null; "$z" bin r unset a; next
cp kept r; next; rm r; next; "$z" bin r set b 3; next; kill $p; wait $p; echo $?
{ "$z" bin r watch 2>&1; echo $? >status; } | { read -r l; "$z" bin r set b 4; head -1; }; cat status
)");
  ASSERT_EQ(std::system(("timeout 60 sh " + path("script")).c_str()), 0);
  const std::string a = R"("record":{"Variable":"a","Value":2,"Comment":"c"})";
  EXPECT_EQ(readFile(path("said")), R"(watching r
{"change":"added","record":{"Variable":"a","Value":1}}
{"change":"changed",)" + a + R"(,"before":{"Variable":"a","Value":1}}
zorreg:
{"change":"removed",)" + a + R"(}
{"change":"added",)" + a + R"(}
{"change":"removed",)" + a + R"(}
{"change":"added","record":{"Variable":"b","Value":3}}
0
changed  b                         4
0
)");
}

}  // namespace
