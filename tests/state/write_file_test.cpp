/* Replacing files on a disk of which every operation fails once, or is the last one of the process or the machine. */
#include "state/write_file.h"

#include <gtest/gtest.h>

#include "tests/state/simulated_disk.h"

namespace {

using fault_t = simulated_disk_t::fault_t;
using unsynced_t = simulated_disk_t::unsynced_t;

const std::string now(150'000, 'n'); /* longer than a block */

struct replacement_t {
    const char *name;
    std::string (*replace)(simulated_disk_t &disk);
};

const replacement_t replacements[] = {
    {"written", [](simulated_disk_t &disk) { return write_file("file", now, disk); }},
    {"written in parts",
     [](simulated_disk_t &disk) {
         const content_fn_t content = [](const auto &write) {
             for (size_t at = 0; at < now.size(); at += 1000)
                 write(std::string_view(now).substr(at, 1000));
         };
         return write_file("file", content, disk);
     }},
    {"linked", [](simulated_disk_t &disk) { return link_file("version", "file", disk); }},
    {"linked though it is a link already",
     [](simulated_disk_t &disk) {
         const std::string error = link_file("version", "again", disk);
         return error.empty() ? link_file("version", "file", disk) : error;
     }},
    {"written beside a file that a killed process has left",
     [](simulated_disk_t &disk) {
         disk.put("file.new", "half");
         return write_file("file", now, disk);
     }},
};

simulated_disk_t start_disk() {
    simulated_disk_t disk;
    disk.put("file", "old");
    disk.put("version", now);
    EXPECT_EQ(link_file("version", "again", disk), "");
    return disk;
}

TEST(write_file_test, a_file_is_replaced_as_a_whole_or_not_at_all_and_success_is_durable) {
    for (const auto &[name, replace] : replacements) {
        for (const fault_t fault : {fault_t::fails, fault_t::fails_though_done, fault_t::dies}) {
            size_t operation = 1;
            for (bool was_hit = true; was_hit; ++operation) {
                SCOPED_TRACE(std::string(name) + ", fault " + std::to_string(static_cast<int>(fault)) +
                             " at operation " + std::to_string(operation));
                simulated_disk_t disk = start_disk();
                disk.arm(operation, fault);
                bool is_done = false;
                bool is_dead = false;
                try {
                    is_done = replace(disk).empty();
                } catch (const process_died_t &) {
                    is_dead = true;
                }
                was_hit = !disk.has_faults_left();
                EXPECT_TRUE(is_done || was_hit);
                EXPECT_TRUE(is_dead || disk.open_files() == 0);
                EXPECT_TRUE(was_hit || !disk.has("file.new")) << "nothing is left over";
                EXPECT_TRUE(was_hit || !disk.has("again.new")) << "nothing is left over";
                for (const bool are_names_kept : {false, true}) {
                    const simulated_disk_t found = disk.after_crash(are_names_kept, unsynced_t::lost);
                    const std::string file = found.content("file");
                    EXPECT_TRUE(file == now || (file == "old" && !is_done)) << file;
                    EXPECT_EQ(found.content("again"), now);
                    EXPECT_EQ(found.content("version"), now);
                }
            }
            EXPECT_GE(operation, 5U) << name << ": at least removing, linking, renaming and syncing can fail";
        }
    }
}

}  // namespace
