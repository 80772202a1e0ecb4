#include "dch/testkit/postgres_server.h"

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "tests/support/wait_until.h"

namespace dch::testkit {

namespace {

constexpr std::chrono::seconds longestStart{60};

struct User {
  uid_t id = 0;
  gid_t group = 0;
};

// It does not run as root.
const User& serverUser() {
  static const User user = [] {
    if (getuid() != 0) return User{getuid(), getgid()};
    const passwd* found = getpwnam("postgres");
    if (found == nullptr) found = getpwnam("nobody");
    if (found == nullptr) throw std::runtime_error("no user for the PostgreSQL server");
    return User{found->pw_uid, found->pw_gid};
  }();
  return user;
}

// In the new process. Another user's process is not told of the end of its parent, unless it asks
// again. SIGQUIT lets it end its processes, and leave no memory that they shared.
void becomeServerUser() {
  const User& user = serverUser();
  if (getuid() == 0 &&
      (setgroups(0, nullptr) != 0 || setgid(user.group) != 0 || setuid(user.id) != 0))
    _exit(EXIT_FAILURE);
  const pid_t parent = getppid();
  prctl(PR_SET_PDEATHSIG, SIGQUIT);
  if (getppid() != parent) _exit(EXIT_FAILURE);
}

}  // namespace

PostgresServer::PostgresServer() {
  const User& user = serverUser();
  if (chown(_folder.path().c_str(), user.id, user.group) != 0)
    throw std::runtime_error("no folder for the PostgreSQL server");
  makeData();
  start();
}

PostgresServer::~PostgresServer() {
  crash();
}

std::string PostgresServer::connectionString() const {
  return "host=" + _folder.path() + " user=tester dbname=postgres";
}

void PostgresServer::makeData() const {
  Process initdb(POSTGRES_PROGRAMS "/initdb",
                 {"--pgdata=" + dataFolder(), "--username=tester", "--auth=trust",
                  "--encoding=UTF8", "--locale=C", "--no-sync", "--no-instructions"},
                 {}, Process::Output::captured, becomeServerUser);
  const ProcessResult result = initdb.finish(longestStart);
  if (result.exitStatus != 0)
    throw std::runtime_error("no data for the PostgreSQL server: " + result.standardError);
}

void PostgresServer::start() {
  Process::Arguments arguments{"-D", dataFolder()};
  for (const std::string& setting :
       {std::string("listen_addresses="), "unix_socket_directories=" + _folder.path(),
        std::string("fsync=off"), std::string("shared_buffers=16MB"),
        std::string("max_connections=20"), std::string("autovacuum=off"),
        std::string("dynamic_shared_memory_type=mmap")})
    arguments.insert(arguments.end(), {"-c", setting});
  _process =
      std::make_unique<Process>(POSTGRES_PROGRAMS "/postgres", arguments, Process::Environment(),
                                Process::Output::captured, becomeServerUser);
  if (!waitUntil([this] { return isServing(); }, longestStart))
    throw std::runtime_error("the PostgreSQL server does not serve: " + log());
}

// It writes so into a file, of which the first line is its process.
bool PostgresServer::isServing() const {
  const std::string file = contentOf(dataFolder() + "/postmaster.pid");
  return file.starts_with(std::to_string(_process->id()) + "\n") &&
         file.find("\nready") != std::string::npos;
}

void PostgresServer::crash() {
  _process->signal(SIGQUIT);
  _process->finish();
}

void PostgresServer::restart() {
  crash();
  start();
}

}  // namespace dch::testkit
