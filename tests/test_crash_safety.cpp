// test_crash_safety.cpp - a file the library replaces survives a kill at
// any moment. A child process saving preferences is killed at each crash
// point of the replacement (created aside, half written, written, synced,
// renamed) and at random times; the file on disk is then always the old
// one or the new one, complete.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "allocfail.h"
#include "test_support.h"
#include "tqbase/tqbase.h"

#ifndef _WIN32
#include <csignal>
#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void WriteAll(const std::string& path, const std::string& text) {
  ASSERT_TRUE(ADocObj::WriteFileAtomic(path.c_str(), text.data(), text.size()));
}

// A preferences file with a large section of its own beside the flags, so
// that the halves of a write are far apart.
std::string OldFile() {
  std::string s = "; settings of the host\r\n[Host]\r\n";
  for (int i = 0; i < 3000; ++i) s += "Key" + std::to_string(i) + "=value number " + std::to_string(i) + "\r\n";
  return s + "[GlobalFlags]\r\ndDefRes=150.0000000000000000\r\n";
}

AGFLAGS Flags(double res) {
  AGFLAGS f;
  f.Init();
  f.dDefRes = res;
  return f;
}

// What saving f over the old file writes, made in a scratch file.
std::string Saved(const std::string& dir, const AGFLAGS& f, const std::string& old) {
  const std::string scratch = dir + "tq_crash_expected.ini";
  WriteAll(scratch, old);
  EXPECT_TRUE(const_cast<AGFLAGS&>(f).SaveToProfile(scratch.c_str()));
  std::string s = tqtest::ReadAll(scratch);
  std::remove(scratch.c_str());
  return s;
}

// A killed save leaves its file aside (name.tmpPID.N) behind: removed here.
void RemoveLeftovers(const std::string& dir, const std::string& name) {
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d))
      if (std::string(e->d_name).rfind(name + ".tmp", 0) == 0) std::remove((dir + e->d_name).c_str());
    closedir(d);
  }
}

}  // namespace

TEST(CrashSafety, KilledAtEachPointOfASave) {
  const std::string dir = ::testing::TempDir();
  const std::string ini = dir + "tq_crash_points.ini";
  const std::string old = OldFile();
  const AGFLAGS flags = Flags(1234);
  const std::string fresh = Saved(dir, flags, old);
  ASSERT_NE(fresh, old);
  // Points 1-4 come before the rename, 5 after it; 6 is never reached.
  for (int point = 1; point <= 6; ++point) {
    WriteAll(ini, old);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      AGFLAGS f = flags;
      tqbase::allocfail::ArmCrash(point);
      _exit(f.SaveToProfile(ini.c_str()) ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    if (point <= 5) {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "point " << point;
    } else {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const std::string now = tqtest::ReadAll(ini);
    EXPECT_TRUE(now == (point <= 4 ? old : fresh)) << "killed at point " << point << ": the file holds "
                                                    << now.size() << " bytes";
  }
  std::remove(ini.c_str());
  RemoveLeftovers(dir, "tq_crash_points.ini");
}

TEST(CrashSafety, KilledAtRandomTimesWhileSaving) {
  const std::string dir = ::testing::TempDir();
  const std::string ini = dir + "tq_crash_random.ini";
  const std::string old = OldFile();
  const AGFLAGS a = Flags(300), b = Flags(2400);
  const std::string savedA = Saved(dir, a, old), savedB = Saved(dir, b, old);
  std::mt19937 rng(61);
  int seenOld = 0, seenNew = 0;
  for (int iter = 0; iter < 60; ++iter) {
    WriteAll(ini, old);
    int saves[2];
    ASSERT_EQ(pipe(saves), 0);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(saves[0]);
      AGFLAGS fa = a, fb = b;
      for (unsigned k = 0;; ++k) {
        (k % 2 ? fb : fa).SaveToProfile(ini.c_str());
        if (write(saves[1], "s", 1) != 1) _exit(4);  // one save done
      }
    }
    close(saves[1]);
    // Every other time, after the first save is done, so that later saves
    // are cut as well, whatever the speed of the build.
    char done;
    if (iter % 2) {
      ASSERT_EQ(read(saves[0], &done, 1), 1);
    }
    usleep(rng() % 3000);
    kill(pid, SIGKILL);
    close(saves[0]);
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    const std::string now = tqtest::ReadAll(ini);
    ASSERT_TRUE(now == old || now == savedA || now == savedB) << "iteration " << iter << ": the file holds "
                                                               << now.size() << " bytes";
    (now == old ? seenOld : seenNew)++;
  }
  std::remove(ini.c_str());
  RemoveLeftovers(dir, "tq_crash_random.ini");
  // Half the kills came after a save had ended.
  EXPECT_GE(seenNew, 30);
  RecordProperty("killed before the first save ended", seenOld);
}

#else

TEST(CrashSafety, NeedsFork) { GTEST_SKIP() << "the kill tests fork a child process, which Windows has no form of"; }

#endif
