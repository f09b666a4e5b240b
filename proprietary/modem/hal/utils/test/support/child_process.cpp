#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "support.h"

extern char** environ;

namespace kovani_test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& s : strings) pointers.push_back(s.data());
  pointers.push_back(nullptr);
  return pointers;
}

// An anonymous file holding text, read from its start.
FILE* TempFile(const std::string& text) {
  FILE* file = fdopen(open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600), "w+");
  if (file != nullptr) fwrite(text.data(), 1, text.size(), file), rewind(file);
  return file;
}

void Redirect(posix_spawn_file_actions_t* actions, int fd, const std::string& to, int captured) {
  if (to.empty()) posix_spawn_file_actions_adddup2(actions, captured, fd);
  if (to == "-") posix_spawn_file_actions_addclose(actions, fd);
  if (!to.empty() && to != "-") {
    posix_spawn_file_actions_addopen(actions, fd, to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  }
}

std::string Rest(FILE* file) {
  std::string text;
  char buf[4096];
  for (size_t n; file != nullptr && (n = fread(buf, 1, sizeof(buf), file)) > 0;)
    text.append(buf, n);
  return text;
}

}  // namespace

Child::Child(const std::vector<std::string>& argv, const ChildOptions& options) {
  std::vector<std::string> args, env;
  std::istringstream emulator(KOVANI_TEST_EMULATOR);
  for (std::string word; emulator >> word;) args.push_back(word);
  // valgrind does not start with standard error closed: it reports nowhere
  // then, and only its exit status tells.
  if (options.err == "-" && !args.empty() && args[0].find("valgrind") != std::string::npos) {
    args.insert(args.begin() + 1, "--log-file=/dev/null");
  }
  args.insert(args.end(), argv.begin(), argv.end());
  for (char** e = environ; *e != nullptr; ++e) env.emplace_back(*e);
  for (const std::string& change : options.env) {
    const std::string name = change.substr(0, change.find('=')) + "=";
    env.erase(std::remove_if(env.begin(), env.end(),
                             [&name](const std::string& e) { return e.rfind(name, 0) == 0; }),
              env.end());
    if (change.size() >= name.size()) env.push_back(change);
  }
  FILE* in = TempFile(options.input);
  err = TempFile("");
  int fds[2] = {-1, -1};
  if (in == nullptr || err == nullptr || pipe2(fds, O_CLOEXEC) != 0) return;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(in), STDIN_FILENO);
  Redirect(&actions, STDOUT_FILENO, options.out, fds[1]);
  Redirect(&actions, STDERR_FILENO, options.err, fileno(err));
  std::vector<char*> argp = Pointers(args), envp = Pointers(env);
  if (posix_spawnp(&pid, argp[0], &actions, nullptr, argp.data(), envp.data()) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  fclose(in);
  close(fds[1]);
  out = fdopen(fds[0], "r");
}

Child::~Child() {
  if (pid > 0) Wait();
  if (out != nullptr) fclose(out);
  if (err != nullptr) fclose(err);
}

ChildRun Child::Wait() {
  ChildRun run;
  run.out = Rest(out);
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid) {
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  pid = -1;
  if (err != nullptr) rewind(err), run.err = Rest(err);
  return run;
}

}  // namespace kovani_test
