/*
 * The journal on a simulated disk. Each operation fails once, alone and together with each later one, and crashes lose
 * unsynced data. Acknowledged lines must survive, groups must be whole, and a new process must be able to continue.
 */
#include <gtest/gtest.h>

#include "keeper.h"
#include "simulated_disk.h"

namespace {

using fault_t = simulated_disk_t::fault_t;
using unsynced_t = simulated_disk_t::unsynced_t;

constexpr const char *journal_path = "a.state";
constexpr unsynced_t all_unsynced[] = {unsynced_t::kept, unsynced_t::lost, unsynced_t::first_half_kept,
                                       unsynced_t::second_half_kept, unsynced_t::last_write_kept};
constexpr fault_t all_faults[] = {fault_t::fails, fault_t::fails_though_done, fault_t::dies};

/** The work of a process on a journal. */
struct scenario_t {
    const char *name;
    size_t commits_before; /* by an earlier process, without a fault */
    size_t commits;
    size_t line_bytes;           /* of a line that belongs to the state */
    size_t filling_bytes;        /* of a line that does not */
    uint64_t snapshot_ms;        /* duration of a snapshot */
    bool has_lost_group = false; /* the earlier process made one more commit, whose sync failed */
};
constexpr scenario_t scenarios[] = {
    {"a_new_file_with_two_snapshots", 0, 7, 10, 22500, 0},
    {"a_new_file_with_two_slow_snapshots", 0, 7, 10, 22500, 20},
    {"a_short_file_that_is_written_anew", 2, 2, 10, 1000, 0},
    {"a_long_file_whose_last_group_is_only_in_the_cache", 3, 2, 22000, 10, 0, true},
};

class journal_faults_test : public testing::TestWithParam<scenario_t> {
protected:
    journal_faults_test() { fwx_host_clock_turn(0); }
    ~journal_faults_test() override { fwx_host_clock_run(); }

    /** Commits a group of two lines of the state with filling between them. */
    static std::string commit_group(keeper_t &keeper) {
        const size_t number = keeper.lines.size();
        keeper.add(std::to_string(number) + " " + std::string(GetParam().line_bytes, 'x'));
        keeper.add(keeper_t::filling(GetParam().filling_bytes));
        return keeper.add_and_commit(std::to_string(number + 1));
    }

    /** Creates the file as an earlier process. */
    void SetUp() override {
        if (GetParam().commits_before == 0) return;
        simulated_disk_t disk;
        keeper_t keeper(journal_path, disk);
        EXPECT_EQ(keeper.open(), "");
        for (size_t i = 0; i < GetParam().commits_before; ++i) {
            EXPECT_EQ(commit_group(keeper), "");
        }
        acknowledged_before_ = keeper.lines;
        if (GetParam().has_lost_group) {
            disk.arm(2, fault_t::fails);
            EXPECT_NE(commit_group(keeper), "");
        }
        held_before_ = keeper.lines;
        start_ = disk.next_process();
    }

    struct result_t {
        lines_t acknowledged;
        lines_t held;               /* in memory at the end */
        simulated_disk_t disk;      /* at the end of the process, even if it died */
        bool has_recovered = false; /* the process survived all faults and saved everything */
    };
    result_t run(simulated_disk_t &disk) const {
        result_t result;
        result.acknowledged = acknowledged_before_;
        keeper_t keeper(journal_path, disk);
        keeper.snapshot_ms = GetParam().snapshot_ms;
        bool is_open = false;
        try {
            is_open = keeper.open().empty();
            /* After an error nothing was acknowledged: a group that the earlier process failed to sync may be lost. */
            if (is_open && keeper.journal().error().empty()) result.acknowledged = keeper.lines;
            for (size_t i = 0; is_open && i < GetParam().commits; ++i) {
                const bool is_acknowledged = commit_group(keeper).empty();
                EXPECT_EQ(is_acknowledged, keeper.journal().error().empty());
                EXPECT_EQ(is_acknowledged, !keeper.journal().is_unsaved());
                if (is_acknowledged) result.acknowledged = keeper.lines;
                if (keeper.snapshot_ms != 0) fwx_host_clock_turn(5 * keeper.snapshot_ms); /* half of a pause */
            }
        } catch (const process_died_t &) {
            is_open = false;
        }
        result.held = begins_with(keeper.lines, held_before_) ? keeper.lines : held_before_;
        result.disk = disk.next_process();
        if (!is_open || disk.has_faults_left()) return result;
        fwx_host_clock_turn(10 * GetParam().snapshot_ms);
        EXPECT_EQ(keeper.commit(), "");
        result.has_recovered = true;
        return result;
    }

    /** Expects that a new process finds the acknowledged lines in whole groups, and that its own commit survives a
     * crash. */
    static void check(simulated_disk_t &&disk, const lines_t &acknowledged, const lines_t &held) {
        lines_t all;
        {
            keeper_t keeper(journal_path, disk);
            ASSERT_EQ(keeper.open(), "");
            ASSERT_EQ(keeper.journal().error(), "");
            ASSERT_TRUE(begins_with(keeper.lines, acknowledged));
            ASSERT_TRUE(begins_with(held, keeper.lines));
            ASSERT_EQ(keeper.lines.size() % 2, 0U) << "half a group";
            ASSERT_EQ(commit_group(keeper), "");
            all = keeper.lines;
        }
        ASSERT_EQ(disk.open_files(), 0U);
        ASSERT_FALSE(disk.has(journal_path + std::string(".new")));
        simulated_disk_t crashed = disk.after_crash(false, unsynced_t::lost);
        keeper_t keeper(journal_path, crashed);
        ASSERT_EQ(keeper.open(), "");
        ASSERT_EQ(keeper.lines, all);
    }
    void run_and_check(simulated_disk_t &disk) const {
        const result_t result = run(disk);
        if (result.has_recovered) {
            check(disk.after_crash(false, unsynced_t::lost), result.held, result.held);
        }
        check(result.disk.next_process(), result.acknowledged, result.held);
        for (const bool are_names_kept : {true, false}) {
            if (!are_names_kept && !result.disk.has_unsynced_names()) continue;
            for (const auto unsynced : all_unsynced) {
                if (unsynced != unsynced_t::kept && !result.disk.has_unsynced_bytes()) continue;
                if (HasFatalFailure()) return;
                check(result.disk.after_crash(are_names_kept, unsynced), result.acknowledged, result.held);
            }
        }
    }

    /** Checks a process whose operations have these faults. Returns how many operations it made; 0 after a failure. */
    size_t operations_with(const std::vector<std::pair<size_t, fault_t>> &faults) const {
        simulated_disk_t disk = start_.next_process();
        testing::Message described;
        for (const auto &[operation, fault] : faults) {
            described << "fault " << static_cast<int>(fault) << " at " << operation << ' ';
            disk.arm(operation, fault);
        }
        SCOPED_TRACE(described);
        run_and_check(disk);
        return HasFatalFailure() ? 0 : disk.operations();
    }

    simulated_disk_t start_;
    lines_t acknowledged_before_;
    lines_t held_before_;
};

TEST_P(journal_faults_test, one_or_two_operations_fail_and_the_last_of_them_may_kill_the_process) {
    for (const fault_t first_fault : {fault_t::fails, fault_t::fails_though_done}) {
        for (const fault_t fault : all_faults) {
            size_t first = 0;
            size_t operations = 0;
            do {
                size_t second = ++first; /* the same operation: it has only the second fault */
                do {
                    operations = operations_with({{first, first_fault}, {second, fault}});
                } while (operations >= second++);
            } while (operations >= first);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(journal, journal_faults_test, testing::ValuesIn(scenarios),
                         [](const auto &scenario) { return std::string(scenario.param.name); });

}  // namespace
