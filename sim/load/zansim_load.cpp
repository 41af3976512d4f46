// SPDX-License-Identifier: MIT
//
// zansim_load [MODULES [SECONDS [THREADS]]]
//
// Registers many modules with the zansim that is running and makes requests in
// all their names, as fast as the answers come.  Prints the rate and, from time to
// time, the memory of zansim, which must not grow.  Fails if zansim ends meanwhile.
#include <zan.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Now and then a request changes the value that some of the modules watch.
constexpr int set_every = 50;
constexpr int watch_every = 100;
constexpr char path_to_get[] = "/runtime/hw/model";
constexpr char path_to_set[] = "/sys/hostname";

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int read_id(const char *file) {
    int id = -1;
    if (!(std::ifstream(file) >> id))
        throw std::runtime_error(std::string("no daemon: cannot read ") + file);
    return id;
}

// A number from the status of a process or thread; -1 if there is none.
long status_number(pid_t pid, const std::string &field) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        long number = 0;
        if (word == field && status >> number)
            return number;
    }
    return -1;
}

// The kernel names the thread that received last.
pid_t reader_of(int queue) {
    msqid_ds state{};
    if (msgctl(queue, IPC_STAT, &state) != 0)
        fail("the daemon's queue");
    return static_cast<pid_t>(status_number(state.msg_lrpid, "Tgid:"));
}

struct Daemon {
    int requests = read_id("/tmp/zan_qid");
    int answers = read_id("/tmp/zan_req_qid");
    pid_t pid = reader_of(requests);
};

struct Module {
    int queue = -1;
    std::string name;
};

// Owns the modules' queues, which the kernel would keep.
class Modules {
public:
    Modules() = default;
    ~Modules() { remove_queues(); }
    Modules(const Modules &) = delete;
    Modules &operator=(const Modules &) = delete;

    const Module &add() {
        const std::lock_guard guard(mutex_);
        const int queue = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
        if (queue < 0)
            fail("msgget");
        modules_.push_back({queue, "LOAD" + std::to_string(modules_.size())});
        return modules_.back();
    }

    // Ends the process without waiting for other threads.  Only the first caller
    // prints its reason: the others fail because the queues are gone.
    [[noreturn]] void give_up(const std::string &reason) {
        mutex_.lock(); // never unlocked
        std::fprintf(stderr, "zansim_load: %s\n", reason.c_str());
        remove_queues();
        _exit(1);
    }

    std::size_t size() const { return modules_.size(); }
    const Module &operator[](std::size_t i) const { return modules_[i]; }
    auto begin() const { return modules_.begin(); }
    auto end() const { return modules_.end(); }

private:
    void remove_queues() const {
        for (const Module &module : modules_)
            msgctl(module.queue, IPC_RMID, nullptr);
    }

    std::mutex mutex_; // over the vector while modules are added, and over the end
    std::vector<Module> modules_;
};

// Gives up as soon as zansim ends: its clients may be waiting for answers on queues
// that it left behind.
class Watch {
public:
    Watch(const Daemon &daemon, Modules &modules)
        : process_(static_cast<int>(syscall(SYS_pidfd_open, daemon.pid, 0))) {
        if (process_ < 0)
            fail("zansim, process " + std::to_string(daemon.pid));
        if (pipe(stop_) != 0)
            fail("pipe");
        thread_ = std::thread([this, &modules] {
            pollfd fds[] = {{process_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
            while (poll(fds, 2, -1) < 0 && errno == EINTR) {
            }
            if (fds[0].revents != 0)
                modules.give_up("zansim has ended");
        });
    }
    ~Watch() {
        close(stop_[1]);
        thread_.join();
        close(stop_[0]);
        close(process_);
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

private:
    int process_;
    int stop_[2] = {-1, -1};
    std::thread thread_;
};

// One thread's record; the payload area is cleared as far as it was used.
class Exchange {
public:
    explicit Exchange(const Daemon &daemon) : daemon_(daemon) {}

    void request(const Module &module, int type, int cmd, const std::string &payload) {
        std::memset(&message_, 0, offsetof(zan_msg, body.data));
        message_.mtype = module.queue;
        zan_body &body = message_.body;
        body.type = type;
        body.cmd = cmd;
        body.pid = type == ZAN_CLASS_REGISTRATION ? 0 : getpid();
        module.name.copy(body.src, sizeof body.src - 1);
        body.len = static_cast<int>(payload.size());
        payload.copy(body.data, sizeof body.data);
        if (msgsnd(daemon_.requests, &message_, ZAN_HEADER_SIZE + payload.size(), 0) != 0)
            fail("msgsnd");
        const bool registration = type == ZAN_CLASS_REGISTRATION;
        const int queue = registration ? daemon_.answers : module.queue;
        if (msgrcv(queue, &message_, sizeof message_.body, registration ? module.queue : type, 0) <
            0)
            fail("msgrcv");
        if (body.result < 0)
            throw std::runtime_error(body.data);
    }

    // Empties the module's queue of notifications: how many there were.
    long collect(const Module &module) {
        long count = 0;
        while (msgrcv(module.queue, &message_, sizeof message_.body, ZAN_CLASS_NOTIFY,
                      IPC_NOWAIT) >= 0)
            ++count;
        return count;
    }

private:
    const Daemon &daemon_;
    zan_msg message_{};
};

void register_modules(const Daemon &daemon, int count, Modules &modules) {
    Exchange exchange(daemon);
    for (int i = 0; i < count; ++i) {
        const Module &module = modules.add();
        exchange.request(module, ZAN_CLASS_REGISTRATION, ZAN_REGISTER, "");
        if (i % watch_every == 0)
            exchange.request(module, ZAN_CLASS_NOTIFY, ZAN_NOTIFY_REGISTER_VALUE,
                             std::string(2, '\0') + path_to_set);
    }
}

void unregister_modules(const Daemon &daemon, const Modules &modules) {
    Exchange exchange(daemon);
    for (const Module &module : modules)
        exchange.request(module, ZAN_CLASS_REGISTRATION, ZAN_UNREGISTER, "");
}

struct Counters {
    std::atomic<long> requests = 0;
    std::atomic<long> notifications = 0;
    std::atomic<bool> stop = false;
};

// Requests of every THREADS-th module, in turn.
void work(const Daemon &daemon, const Modules &modules, std::size_t first, std::size_t step,
          Counters &counters) {
    Exchange exchange(daemon);
    long round = 0;
    for (std::size_t i = first; !counters.stop; i = i + step < modules.size() ? i + step : first) {
        const Module &module = modules[i];
        ++round;
        if (round % set_every == 0)
            exchange.request(module, ZAN_CLASS_CFG, ZAN_CFG_SET,
                             std::string("0") + path_to_set + " host" + std::to_string(round));
        else
            exchange.request(module, ZAN_CLASS_CFG, ZAN_CFG_GET, path_to_get);
        counters.notifications += exchange.collect(module);
        ++counters.requests;
    }
}

void report(const char *when, const Daemon &daemon) {
    std::printf("%-24s zansim has %ld kB resident\n", when, status_number(daemon.pid, "VmRSS:"));
    std::fflush(stdout);
}

int number_argument(int argc, char **argv, int index, int otherwise) {
    const int number = index < argc ? std::atoi(argv[index]) : otherwise;
    if (number < 1)
        throw std::runtime_error("usage: zansim_load [MODULES [SECONDS [THREADS]]]");
    return number;
}

void run(int argc, char **argv) {
    const int count = number_argument(argc, argv, 1, 1000);
    const int seconds = number_argument(argc, argv, 2, 10);
    const int threads = number_argument(argc, argv, 3, 2);
    const Daemon daemon;
    report("before", daemon);
    const auto registering = Clock::now();
    Modules modules;
    const Watch watch(daemon, modules);
    register_modules(daemon, count, modules);
    const std::chrono::duration<double> registered = Clock::now() - registering;
    std::printf("%d modules registered in %.2f s\n", count, registered.count());
    report("registered", daemon);

    Counters counters;
    std::vector<std::thread> workers;
    const auto step = static_cast<std::size_t>(threads);
    for (std::size_t first = 0; first < step; ++first)
        workers.emplace_back([&, first] {
            try {
                work(daemon, modules, first, step, counters);
            } catch (const std::exception &error) {
                // The other threads may wait for answers that will not come.
                modules.give_up(error.what());
            }
        });
    const auto start = Clock::now();
    for (int part = 1; part <= 4; ++part) {
        std::this_thread::sleep_until(start + part * std::chrono::seconds(seconds) / 4);
        report(("after " + std::to_string(counters.requests) + " requests").c_str(), daemon);
    }
    counters.stop = true;
    const std::chrono::duration<double> lasted = Clock::now() - start;
    for (std::thread &worker : workers)
        worker.join();
    std::printf("%.0f requests a second from %d threads, %ld notifications received\n",
                static_cast<double>(counters.requests) / lasted.count(), threads,
                counters.notifications.load());
    unregister_modules(daemon, modules);
    report("unregistered", daemon);
}

} // namespace

int main(int argc, char **argv) {
    try {
        run(argc, argv);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "zansim_load: %s\n", error.what());
        return 1;
    }
}
