/* Addresses of stores and the options that go with them: correct ones, errors and warnings. */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "fleet/store_url.h"
#include "tests/support/eventually.h"
#include "tests/support/runtime_directory.h"

namespace {

/** The endpoints and the prefix of a store, or the error. */
std::string read(const store_options_t &options) {
    store_t store;
    std::string text = read_store(options, store);
    if (!text.empty()) return text;
    for (const std::string &endpoint : store.endpoints) {
        text += endpoint + ' ';
    }
    return text + store.prefix;
}

TEST(store_url, names_the_endpoints_and_the_prefix_and_faults_are_named) {
    const std::string begin = ": must begin with etcd://";
    const std::string endpoint = ": must be HOST:PORT, with a name, an IPv4 address or [an IPv6 address]";
    const std::string prefix =
        ": must end with /PREFIX: words of letters, digits, '.', '_' and '-' with slashes between, 200 bytes at most";
    const std::pair<std::string, std::string> right[] = {
        {"etcd://127.0.0.1:2379/edge", "http://127.0.0.1:2379 edge"},
        {"etcd://a.example:1,b-2:65535/fleet/edge.1_x/", "http://a.example:1 http://b-2:65535 fleet/edge.1_x"},
        {"etcd://a:1/a/b/c", "http://a:1 a/b/c"},
        {"etcd://[2001:db8::1]:2379,[::1]:2380/p", "http://[2001:db8::1]:2379 http://[::1]:2380 p"},
    };
    for (const auto &[url, text] : right) {
        EXPECT_EQ(read({url, {}, {}, {}, {}, {}}), text);
        EXPECT_TRUE(is_store_url(url));
    }
    EXPECT_FALSE(is_store_url("/etc/etcd://x"));
    for (const std::string url : {"http://a:1/p", ""}) {
        EXPECT_EQ(read({url, {}, {}, {}, {}, {}}), url + begin);
    }
    for (const std::string &path : {std::string(), std::string("/"), std::string("//p"), std::string("/p//"),
                                    std::string("/p?q"), '/' + std::string(201, 'p')}) {
        EXPECT_EQ(read({"etcd://a:1" + path, {}, {}, {}, {}, {}}), "etcd://a:1" + path + prefix);
    }
    for (const std::string place : {"a", "", "a:0", "a:65536", "::1:2379", "[::g]:2379", "u:w@a:1"}) {
        const std::string url = "etcd://" + place + "/p";
        EXPECT_EQ(read({url, {}, {}, {}, {}, {}}), url + ": \"" + place + "\"" + endpoint);
    }
    EXPECT_EQ(read({"etcd://a:1,/p", {}, {}, {}, {}, {}}), "etcd://a:1,/p: \"\"" + endpoint);
}

TEST(store_url, files_are_read_and_belong_together) {
    const runtime_directory_t folder;
    const std::string file = folder.file("file", "pass word\n\n");
    const std::string none = folder.path() + "/none";
    const std::string empty = folder.file("empty", "\n");
    const std::string long_one = folder.file("long", std::string(65537, 'x'));
    const std::string url = "etcd://a:1/p";
    const std::pair<store_options_t, std::string> cases[] = {
        {{url, file, file, file, "ann", file}, "https://a:1 p"},
        {{url, none, "", "", "", ""}, "--ca: " + none + ": No such file or directory"},
        {{url, "", file, file, "", ""}, "--cert and --key: need --ca"},
        {{url, "", "", "", "ann", file},
         "--user: the password would go to the store in plain text; use --ca for TLS, or --insecure-plaintext"},
        {{url, file, file, "", "", ""}, "--cert and --key: one needs the other"},
        {{url, "", "", "", "ann", ""}, "--user and --password-file: one needs the other"},
        {{url, "", "", "", "", file}, "--user and --password-file: one needs the other"},
        {{url, file, "", "", "ann", folder.path()},
         "--password-file: " + folder.path() + ": is a directory, not a regular file"},
        {{url, file, "", "", "ann", "/dev/zero"}, "--password-file: /dev/zero: is a device, not a regular file"},
        {{url, file, "", "", "ann", long_one},
         "--password-file: " + long_one + ": is 65537 bytes long; the most that is read is 65536"},
        {{url, file, "", "", "ann", none}, "--password-file: " + none + ": No such file or directory"},
        {{url, "", "", "", "ann", empty, true}, "--password-file: " + empty + ": is empty"},
    };
    for (const auto &[options, text] : cases) {
        EXPECT_EQ(read(options), text);
    }
    store_t store;
    EXPECT_EQ(read_store(cases[0].first, store), "");
    EXPECT_EQ(store.password, "pass word\n") << "one line feed is the file's";
}

TEST(store_url, a_secret_that_others_can_get_at_is_warned_of) {
    const runtime_directory_t folder;
    const std::string file = folder.file("file", "secret");
    const std::string warning = ": " + file + ": other users have access to it; chmod 600 " + file;
    using warnings_t = std::vector<std::string>;
    store_options_t options;
    EXPECT_EQ(store_warnings(options), warnings_t{});
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    options.password_file = file;
    EXPECT_EQ(store_warnings(options), warnings_t{"--password-file" + warning});
    options.key = file;
    EXPECT_EQ(store_warnings(options), (warnings_t{"--password-file" + warning, "--key" + warning}));
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    EXPECT_EQ(store_warnings(options), warnings_t{});
}

}  // namespace
