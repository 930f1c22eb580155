/* Misbehaving ends of channels over shared memory. Clients send raw offers to a listening server: invalid ones, too
 * many, late ones, or while descriptors are exhausted; it must turn them away, leak no descriptors, and keep serving an
 * honest client. Then servers and clients overwrite the memory that they share with the other side. */
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <thread>

#include "channel_fixture.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/eventually.h"

namespace {

handles_t sound_handles_with(size_t place, int fd) {
    handles_t handles = sound_handles();
    handles[place] = descriptor_t(fd);
    return handles;
}

handles_t sound_handles_and(int fd) {
    handles_t handles = sound_handles();
    handles.emplace_back(fd);
    return handles;
}

/** As many descriptors as one message can carry. */
handles_t all_handles() {
    handles_t handles = sound_handles();
    while (handles.size() < 253) {
        handles.emplace_back(eventfd(1, 0));
    }
    return handles;
}

/** Handles whose segment is memory of this size, with these seals. */
handles_t handles_with_memory(off_t size, int seals) {
    const int fd = memfd_create("segment", MFD_ALLOW_SEALING);
    EXPECT_EQ(ftruncate(fd, size) + fcntl(fd, F_ADD_SEALS, seals), 0);
    return sound_handles_with(0, fd);
}

/** A TCP socket with unsent data and SO_LINGER, so that closing it blocks for an hour. */
int lingering_socket() {
    const descriptor_t listener(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(bind(listener.get(), generic, length) + listen(listener.get(), 1), 0);
    EXPECT_EQ(getsockname(listener.get(), generic, &length), 0);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(connect(fd, generic, length), 0);
    static descriptor_t silent; /* does not read */
    silent = descriptor_t(accept(listener.get(), nullptr, nullptr));
    const std::string filler(1 << 20, 'x');
    while (send(fd, filler.data(), filler.size(), MSG_DONTWAIT) > 0) {
    }
    const linger an_hour = {1, 3600};
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_LINGER, &an_hour, sizeof(an_hour)), 0);
    return fd;
}

/** Makes each creation of a thread fail in the calling thread, as at the system's most threads. */
void refuse_threads() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {std::size(program), program};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0) << strerror(errno);
}

class shm_handshake_t : public shm_fixture_t {
protected:
    static std::vector<descriptor_t> connect_raw_clients(size_t count) {
        std::vector<descriptor_t> clients(count);
        std::generate(clients.begin(), clients.end(), connect_raw);
        return clients;
    }
    /** Checks that the fixture's own client is still served. */
    void expect_service() {
        log_.clear();
        ASSERT_EQ(send("a"), 0u);
        run();
        EXPECT_EQ(take_log(), "took a, done a 0");
    }
};

TEST_F(shm_handshake_t, a_client_with_an_invalid_offer_is_turned_away_nothing_of_it_stays_and_others_are_served) {
    struct case_t {
        const char *what;
        std::function<handles_t()> make;
        std::string bytes = word(greeting);
        uint32_t told = FWX_HOST_ERR_CHANNEL_DOWN;
    };
    const case_t cases[] = {
        {"no descriptors", [] { return handles_t(); }},
        {"one more descriptor", [] { return sound_handles_and(eventfd(1, 0)); }},
        {"one that is slow to close", [] { return sound_handles_and(lingering_socket()); }},
        {"all the descriptors there can be", all_handles},
        {"a longer greeting", sound_handles, word(greeting) + "!"},
        {"another greeting", sound_handles, "fwx!"},
        {"the version before", sound_handles, word(greeting - 1), FWX_HOST_ERR_VERSION},
        {"a pipe for a bell", [] { return sound_handles_with(1, pipe_without_reader()); }},
        {"a bell that counts 0", [] { return sound_handles_with(2, eventfd(0, 0)); }},
        {"a device for the segment", [] { return sound_handles_with(0, ::open("/dev/null", O_RDWR)); }},
        {"memory that can shrink", [] { return handles_with_memory(sizeof(shm_segment_t), F_SEAL_GROW); }},
        {"memory that is too short", [] { return handles_with_memory(4096, F_SEAL_SHRINK | F_SEAL_GROW); }},
    };
    for (const case_t &tried : cases) {
        SCOPED_TRACE(tried.what);
        const uint64_t refused = peers().refused;
        const size_t before = open_descriptors();
        {
            const descriptor_t socket = connect_raw();
            ASSERT_TRUE(hand_over(socket, tried.bytes, tried.make()));
            run_server();
            EXPECT_EQ(shm_why_closed(socket), tried.told);
        }
        EXPECT_EQ(peers().refused, refused + 1);
        expect_service();
        const size_t of_the_case =
            strcmp(tried.what, "one that is slow to close") == 0 ? 1 : 0; /* the static `silent` */
        while (open_descriptors() > before + of_the_case) {
            sched_yield(); /* the closer thread closes them */
        }
    }
    EXPECT_EQ(peers().clients, 1u);
}

TEST_F(shm_handshake_t, a_bell_that_is_made_blocking_and_full_later_still_rings) {
    const raw_client_t client = join();
    const descriptor_t waiting(epoll_create1(0));
    epoll_event event{EPOLLIN | EPOLLET, {}};
    ASSERT_EQ(epoll_ctl(waiting.get(), EPOLL_CTL_ADD, client.handles[1].get(), &event), 0);
    ASSERT_EQ(fcntl(client.handles[1].get(), F_SETFL, 0), 0);
    ASSERT_EQ(eventfd_write(client.handles[1].get(), UINT64_MAX - 2), 0);
    ASSERT_EQ(epoll_wait(waiting.get(), &event, 1, 0), 1);
    client.segment->client_bell.armed = 1;
    ASSERT_EQ(reply("x"), 0u);
    run_server();
    EXPECT_EQ(epoll_wait(waiting.get(), &event, 1, 0), 1);
}

TEST_F(shm_handshake_t, a_client_that_withdraws_messages_while_they_are_read_sees_no_answer_and_is_dropped) {
    const raw_client_t client = join();
    shm_writer_t writer(client.segment->to_server, client.segment->to_server_bytes, shm_ring_bytes);
    for (const char *text : {"a", "b"}) {
        ASSERT_TRUE(writer.write(0, framed(text).data(), 5));
    }
    writer.commit();
    during_take_ = [&] {
        EXPECT_EQ(reply("x"), 0u);
        writer.withdraw();
    };
    shm_bell_ring(client.handles[2]);
    run_server();
    EXPECT_EQ(log_.front(), "connected");
    EXPECT_EQ(log_.back(), "disconnected");
    EXPECT_EQ(count("took a"), 1);
    EXPECT_EQ(client.segment->to_client_bytes[0], 0u);
    EXPECT_TRUE(is_hung_up(client.socket.get()));
}

TEST_F(shm_handshake_t, a_client_may_delay_its_offer_for_two_seconds_and_of_more_than_64_the_oldest_is_turned_away) {
    fwx_host_clock_turn(0);
    const std::vector<descriptor_t> pending = connect_raw_clients(66);
    run_server();
    EXPECT_TRUE(is_hung_up(pending[1].get()));
    EXPECT_FALSE(is_hung_up(pending[2].get()));
    fwx_host_clock_turn(1999);
    run_server();
    ASSERT_TRUE(hand_over(pending[2], word(greeting), sound_handles()));
    run_server();
    fwx_host_clock_turn(1);
    run_server();
    EXPECT_FALSE(is_hung_up(pending[2].get()));
    EXPECT_TRUE(is_hung_up(pending[3].get()));
    expect_service();
}

TEST_F(shm_handshake_t, a_client_beyond_the_servers_limit_is_told_that_the_server_is_busy) {
    const descriptor_limit_t raised(4096);
    {
        const handles_t handles = sound_handles(); /* all clients share one segment, which saves memory */
        std::vector<descriptor_t> clients;
        for (int i = 1; i < 256; ++i) {
            clients.push_back(connect_raw());
            ASSERT_TRUE(hand_over(clients.back(), word(greeting), handles));
            run_server();
        }
        EXPECT_EQ(peers().clients, 256u);
        smc_chan_t late = 0;
        ASSERT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &late), 0u);
        std::swap(chan_, late);
        run_server();
        EXPECT_EQ(ask("q"), FWX_HOST_ERR_BUSY);
        run_client();
        std::swap(chan_, late);
    }
    run_server();
    expect_service();
    EXPECT_EQ(peers().clients, 1u);
}

TEST_F(shm_handshake_t, without_spare_descriptors_each_client_is_turned_away_and_the_loop_continues) {
    const std::vector<descriptor_t> clients = connect_raw_clients(3);
    {
        const no_free_descriptors_t none(clients.back());
        run_server();
        EXPECT_EQ(fwx_host_loop_process(loop_), 0U) << "the loop does not spin";
    }
    for (const descriptor_t &client : clients) {
        EXPECT_EQ(shm_why_closed(client), FWX_HOST_ERR_BUSY);
    }
    expect_service();
}

TEST_F(shm_handshake_t, without_descriptors_clients_are_turned_away_and_served_again_when_there_are_some) {
    const std::vector<descriptor_t> clients = connect_raw_clients(3);
    smc_chan_t chan = 0; /* the sanitizer needs a descriptor for its first check of a class, so use the classes now */
    EXPECT_EQ(smc_msg_chan_open("nobody's", event(), 0, on_error, &chan), FWX_HOST_ERR_NO_SERVER);
    {
        const descriptor_limit_t none(3);
        EXPECT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &chan), static_cast<uint32_t>(EMFILE));
        EXPECT_EQ(fwx_host_loop_create(), nullptr);
        run_server();
    }
    fwx_host_clock_turn(100);
    run_server();
    expect_service();
    EXPECT_EQ(smc_msg_chan_open("tested", event(), 0, on_error, &chan), 0u);
    EXPECT_EQ(smc_msg_chan_close(&chan), 0u);
}

TEST_F(shm_handshake_t, no_client_is_accepted_while_too_many_descriptors_wait_to_be_closed) {
    fwx_host_clock_turn(0);
    const descriptor_limit_t raised(4096);
    const uint64_t refused = peers().refused;
    std::vector<descriptor_t> clients(4);
    std::thread([&] {
        refuse_threads();
        for (descriptor_t &client : clients) {
            client = connect_raw();
            EXPECT_TRUE(hand_over(client, word(greeting), all_handles()));
            run_server();
        }
    }).join();
    EXPECT_EQ(peers().refused, refused + 3);
    expect_service();
    for (int turn = 0; turn < 100000 && peers().refused == refused + 3; ++turn) { /* threads can be created again */
        sched_yield();
        fwx_host_clock_turn(100);
        run_server();
    }
    EXPECT_EQ(peers().refused, refused + 4);
}

class shm_hostile_t : public shm_fixture_t {
protected:
    void SetUp() override {
        shm_fixture_t::SetUp();
        end_channel();
        ASSERT_EQ(shm_listen("hostile", &entrance_), 0u);
        fwx_host_connect_set("tested", "hostile");
    }
    void TearDown() override {
        user_socket_unlisten(entrance_);
        shm_fixture_t::TearDown();
    }

    /** Opens the channel and accepts its offer without a server, so that the test can write to the segment. */
    void open_raw() {
        open();
        ASSERT_EQ(user_socket_accept(entrance_.socket, &socket_), 0u);
        ASSERT_EQ(shm_handles_receive(socket_, &handles_), 0u);
        segment_ = shm_segment_map(handles_[0]);
        ASSERT_NE(segment_, nullptr);
    }

    user_entrance_t entrance_;
    descriptor_t socket_;
    shm_handles_t handles_;
    shm_mapping_t segment_;
};

TEST_F(shm_hostile_t, a_message_keeps_the_length_first_read_and_is_dropped_if_its_key_has_changed) {
    static std::function<void()> during_look; /* called between the client's front() and copy_to() of a message */
    static char rx[64];
    open_raw();
    shm_writer_t writer(segment_->to_client, segment_->to_client_bytes, shm_ring_bytes);
    constexpr uint32_t length_at = 0;
    constexpr uint32_t key_at = 8;
    for (const uint32_t changed_at : {length_at, key_at}) {
        const uint32_t start = writer.position();
        during_look = [&] { memset(segment_->to_client_bytes + start + changed_at, 0x10, sizeof(uint32_t)); };
        const auto on_no_buffer = [](smc_chan_t chan, void *, size_t) {
            during_look();
            return smc_msg_rx_buffer_set(chan, rx, sizeof(rx), nullptr) + 1;
        };
        ASSERT_EQ(smc_msg_rx_buffer_set(chan_, nullptr, 0, on_no_buffer), 0u);
        for (const char *text : {"changed", "whole"}) {
            const std::string bytes = framed(text);
            ASSERT_TRUE(writer.write(0, bytes.data(), static_cast<uint32_t>(bytes.size())));
        }
        writer.commit();
        run_client();
    }
    EXPECT_EQ(take_log(), "got changed, got whole, got whole");
    EXPECT_EQ(errors().dropped_malformed, 1u);
}

TEST_F(shm_hostile_t, an_impossible_index_or_length_is_a_channel_error_and_is_counted) {
    const auto set_length = [](uint8_t *bytes, uint32_t length) { memcpy(bytes, &length, sizeof(length)); };
    const struct {
        std::function<void(uint32_t)> set;
        bool is_of_a_question; /* detected by a synchronous message; else by the loop */
    } damages[] = {{[&](uint32_t value) { set_length(segment_->to_client_bytes, value); }, false},
                   {[&](uint32_t value) { segment_->to_client.read = value; }, false},
                   {[&](uint32_t value) { segment_->to_server.read = value; }, false},
                   {[&](uint32_t value) { segment_->to_server.read = value; }, true},
                   {[&](uint32_t value) { set_length(segment_->answer_bytes, value); }, true},
                   {[&](uint32_t value) { segment_->answers.read = value; }, true}};
    uint64_t dropped = 0;
    for (const auto &damage : damages) {
        for (const uint32_t value : {4u, 0x7ffffff8u, 0x80000000u, 0xfffffff8u}) {
            open_raw();
            ASSERT_EQ(send("a"), 0u);
            run_client();
            damage.set(value);
            shm_bell_ring(handles_[1]);
            if (damage.is_of_a_question) {
                EXPECT_EQ(ask("q"), FWX_HOST_ERR_CHANNEL_DOWN) << value;
            }
            run_client();
            EXPECT_TRUE(count("error") == 1 && count("done a 5003") == 1) << take_log();
            EXPECT_EQ(errors().dropped_malformed, ++dropped) << value;
            log_.clear();
        }
    }
}

TEST_F(shm_hostile_t, a_reply_says_what_was_read_before_it_and_ends_the_channel_if_that_cannot_be) {
    open_raw();
    for (const char *text : {"a", "b", "c"}) {
        ASSERT_EQ(send(text), 0u);
    }
    shm_writer_t writer(segment_->to_client, segment_->to_client_bytes, shm_ring_bytes);
    const std::string bytes = framed("x");
    for (const uint32_t read : {128u, 0u, 256u}) {
        ASSERT_TRUE(writer.write(read, bytes.data(), static_cast<uint32_t>(bytes.size())));
    }
    writer.commit();
    run_client();
    EXPECT_EQ(take_log(), "done a 0, done b 0, got x, got x, done c 5003, error");
    EXPECT_EQ(errors().dropped_malformed, 1u);
}

/** Records in every unit of a ring, without an end. */
void fill(uint8_t *bytes, uint32_t capacity) {
    for (uint32_t at = 0; at < capacity; at += shm_ring_unit) {
        bytes[at] = shm_record_header;
    }
}

TEST_F(shm_hostile_t, messages_and_answers_without_end_from_a_server_that_hangs_up_end_the_channel) {
    for (const bool asks : {false, true}) {
        open_raw();
        asks ? fill(segment_->answer_bytes, shm_answer_bytes) : fill(segment_->to_client_bytes, shm_ring_bytes);
        if (asks) {
            EXPECT_EQ(ask("q"), FWX_HOST_ERR_CHANNEL_DOWN);
        }
        user_socket_close(std::move(socket_));
        run_client();
        EXPECT_EQ(take_log(), "error");
    }
}

using shm_hostile_client_t = shm_fixture_t;

TEST_F(shm_hostile_client_t, a_broken_ring_disconnects_the_client_and_is_counted_but_a_withdrawal_is_not) {
    const std::function<void(shm_segment_t &)> deeds[] = {
        [](shm_segment_t &segment) { segment.to_server_bytes[0] = shm_record_header - 1; },
        [](shm_segment_t &segment) { segment.to_server.read.store(8); },
        [](shm_segment_t &segment) {
            segment.to_server_bytes[3] = 0x10; /* of the length */
        },
        [this](shm_segment_t &segment) {
            shm_writer_t writer(segment.to_server, segment.to_server_bytes, shm_ring_bytes);
            writer.write(0, "1234", 4);
            writer.commit();
            during_take_ = [&segment] { segment.to_server.read.store(8); };
        },
        [this](shm_segment_t &segment) {
            segment.to_client.read.store(4);
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(reply(std::string(600000, 'x')), 0u); /* the server looks when there is no room */
            }
        },
        [](shm_segment_t &segment) { segment.to_server.read.store(1); }, /* withdraws */
    };
    const uint64_t ended_before = peers().ended;
    uint64_t counted = 0;
    for (const auto &deed : deeds) {
        const raw_client_t client = join();
        log_.clear();
        deed(*client.segment);
        shm_bell_ring(client.handles[2]);
        run_server();
        during_take_ = nullptr;
        EXPECT_EQ(count("disconnected"), 1) << counted;
        const bool is_last = &deed == std::end(deeds) - 1;
        EXPECT_EQ(errors().dropped_malformed, is_last ? counted : ++counted);
    }
    EXPECT_EQ(counted, 5u);
    EXPECT_EQ(peers().ended, ended_before) << "they read, and sent nothing malformed";
}

}  // namespace
