// Runs a shell command as it runs on a person's terminal: its standard
// output and standard error are a pseudo-terminal (openpty), its standard
// input is /dev/null. Returns the exit status and everything it wrote on
// the terminal, with the terminal's CR LF line ends made plain LF.
#ifndef LASERCALI_TESTS_SUPPORT_PTY_RUN_H_
#define LASERCALI_TESTS_SUPPORT_PTY_RUN_H_

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace testsupport {

struct PtyRun {
  int status = -1;  // the exit code, -1 when the command did not exit by itself
  std::string out;  // standard output and standard error, as the terminal showed them
};

inline PtyRun RunOnTerminal(const std::string& command) {
  PtyRun run;
  int master = -1;
  int slave = -1;
  struct winsize size = {};
  size.ws_row = 50;
  size.ws_col = 120;
  if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) return run;
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    dup2(slave, STDOUT_FILENO);
    dup2(slave, STDERR_FILENO);
    close(master);
    close(slave);
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(slave);
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(master, buffer, sizeof(buffer));
    if (got > 0) {
      run.out.append(buffer, static_cast<size_t>(got));
    } else if (got < 0 && errno == EINTR) {
      continue;
    } else {
      break;  // EIO: every holder of the terminal's other end has closed it
    }
  }
  close(master);
  int raw = 0;
  if (child > 0 && waitpid(child, &raw, 0) == child && WIFEXITED(raw)) {
    run.status = WEXITSTATUS(raw);
  }
  std::string plain;
  for (char c : run.out) {
    if (c != '\r') plain += c;
  }
  run.out = plain;
  return run;
}

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_PTY_RUN_H_
