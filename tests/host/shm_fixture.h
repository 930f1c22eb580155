/* A fixture for links between processes, with clients that speak the protocol by hand. */
#ifndef TESTS_HOST_SHM_FIXTURE_H
#define TESTS_HOST_SHM_FIXTURE_H

#include "channel_fixture.h"
#include "tests/support/hand_over.h"

class shm_fixture_t : public channel_fixture_t {
protected:
    shm_fixture_t() : channel_fixture_t(link_kind_t::between_processes) {}

    static descriptor_t connect_raw() {
        descriptor_t socket;
        EXPECT_EQ(shm_connect(server_name, &socket), 0u);
        return socket;
    }

    struct raw_client_t {
        handles_t handles = sound_handles();
        shm_mapping_t segment = shm_segment_map(handles[0]);
        descriptor_t socket = connect_raw();
    };
    /** Makes a client whose valid offer the server has accepted. */
    raw_client_t join() const {
        raw_client_t client;
        EXPECT_TRUE(hand_over(client.socket, word(greeting), client.handles));
        run_server();
        return client;
    }
};

#endif
