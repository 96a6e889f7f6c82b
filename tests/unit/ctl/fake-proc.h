#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "test-root.h"

// A /proc with the service in it, and its trace log.
class FakeProc {
public:
    FakeProc() {
        root.Write("proc/uptime", "5000.25 9000.00\n");
        root.Write("proc/1/comm", "systemd\n");
        root.Write("var/log/bayward/bayward.log", "");
    }

    void Add(int pid, const std::string& executable, long startTicks,
             const std::vector<std::string>& threads = {}) {
        const std::string folder = "proc/" + std::to_string(pid) + "/";
        root.Write(folder + "stat", std::to_string(pid) + " (a) b (c) " + state + " " +
                                        std::to_string(parent) +
                                        " 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 " +
                                        std::to_string(startTicks) + " 23 24\n");
        root.Write(folder + "status", "Name:\tbayward\nUid:\t4711\t" + std::to_string(user) + "\t0\t0\n");
        root.Write(folder + "statm", "1000 256 3 4\n");
        root.Write(folder + "limits",
                   "Limit                     Soft Limit           Hard Limit           Units\n"
                   "Max open files            " +
                       limit + "                 4096                 files\n");
        root.Write(folder + "net/tcp",
                   "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  "
                   "timeout inode\n"
                   "   0: 0100007F:A000 0100007F:01BB 01 00000000:00000000 00:00000000 00000000     0        "
                   "0 700 1\n"
                   "   1: 0100007F:A001 0100007F:01BB 06 00000000:00000000 00:00000000 00000000     0        "
                   "0 701 1\n"
                   "   2: 0100007F:A002 0100007F:01BB 01 00000000:00000000 00:00000000 00000000     0        "
                   "0 999 1\n");
        int task = pid;
        for (const std::string& name : threads) {
            root.Write(folder + "task/" + std::to_string(task++) + "/comm", name + "\n");
        }
        std::filesystem::create_directories(root / (folder + "fd"));
        const char* const targets[] = {"/dev/null", "socket:[700]", "socket:[701]", "pipe:[5]"};
        for (std::size_t i = 0; i < std::size(targets); ++i) {
            std::filesystem::create_symlink(targets[i], root / (folder + "fd/" + std::to_string(i)));
        }
        std::filesystem::create_symlink(executable, root / (folder + "exe"));
        std::filesystem::create_symlink(root / rootFolder, root / (folder + "root"));
    }

    TestRoot root;
    // Of those that are added next.
    std::string limit = "1024";
    std::string state = "S";
    int parent = 1;
    uid_t user = 0;          // the effective one
    std::string rootFolder;  // below the root
};
