/* The same exchange as calls of gRPC, answered on a Unix socket: its generic interface, without a message format on
 * top. */
#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>

#include <memory>
#include <string>

#include "channel_bench.h"

namespace {

/** Answers a call with what came. */
class answer_t : public grpc::ServerGenericBidiReactor {
public:
    answer_t() { StartRead(&message_); }

private:
    void OnReadDone(bool ok) override {
        if (!ok) return Finish(grpc::Status::CANCELLED);
        StartWriteAndFinish(&message_, grpc::WriteOptions(), grpc::Status::OK);
    }
    void OnDone() override { delete this; }

    grpc::ByteBuffer message_;
};

class service_t : public grpc::CallbackGenericService {
    grpc::ServerGenericBidiReactor *CreateReactor(grpc::GenericCallbackServerContext * /*context*/) override {
        return new answer_t;
    }
};

void serve(const std::string &address) {
    service_t service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterCallbackGenericService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server != nullptr) server->Wait();
}

class client_t {
public:
    explicit client_t(const std::string &address)
        : stub_(grpc::CreateChannel(address, grpc::InsecureChannelCredentials())) {}
    ~client_t() { queue_.Shutdown(); }
    client_t(const client_t &) = delete;
    client_t &operator=(const client_t &) = delete;

    void send() {
        const uint8_t message[command_bytes] = {};
        const grpc::Slice slice(message, sizeof(message));
        auto *call = new call_t;
        call->context.set_wait_for_ready(true);
        call->rpc = stub_.PrepareUnaryCall(&call->context, "/bench/command", grpc::ByteBuffer(&slice, 1), &queue_);
        call->rpc->StartCall();
        call->rpc->Finish(&call->answer, &call->status, call);
    }
    uint32_t receive() {
        void *tag = nullptr;
        bool ok = false;
        if (!queue_.Next(&tag, &ok)) _exit(1);
        const std::unique_ptr<call_t> call(static_cast<call_t *>(tag));
        if (!ok || !call->status.ok()) _exit(1);
        return 1;
    }

private:
    struct call_t {
        grpc::ClientContext context;
        grpc::ByteBuffer answer;
        grpc::Status status;
        std::unique_ptr<grpc::GenericClientAsyncResponseReader> rpc;
    };

    grpc::GenericStub stub_;
    grpc::CompletionQueue queue_;
};

}  // namespace

double run_grpc(const setting_t &setting) {
    const std::string path = "/tmp/channel_bench_grpc." + std::to_string(getpid());
    const std::string address = "unix:" + path;
    double seconds = 0;
    {
        const server_process_t server(setting.server_cpu, [&] { serve(address); });
        seconds = seconds_of_client(setting, [&] {
            client_t client(address);
            return measure(client, setting);
        });
    }
    unlink(path.c_str());
    return seconds;
}
