// A command line run to its end, as the tools' tests run the tools.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace corvane::test {

struct Ran {
  int status = -1;  // the exit status, -1 when the command did not exit
  std::string out;  // what it printed on standard output
};

inline Ran Shell(const std::string& command) {
  Ran run;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  char chunk[4096];
  while (size_t n = fread(chunk, 1, sizeof chunk, pipe)) run.out.append(chunk, n);
  const int raw = pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return run;
}

}  // namespace corvane::test
