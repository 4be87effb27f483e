// Redis, a store with channels: SET and PUBLISH together, by a local socket or by TCP. The tree is a hash for each of
// its top-level members, with a field for each leaf.
#include <hiredis/hiredis.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "child_process.h"
#include "contender.h"

namespace {

constexpr char kProgram[] = "/usr/bin/redis-server";
constexpr char kHost[] = "127.0.0.1";
constexpr char kSocket[] = "/kivo/redis.socket";
constexpr size_t kMessageParts = 3;  // "message", channel, text

struct FreeReply {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

std::string top_level(const std::string& path) { return path.substr(0, path.find('/')); }

/// One connection to the server.
class Client {
public:
    /// @param port of the loopback interface; 0 for the local socket
    explicit Client(int port) : port_(port) {}
    ~Client() { redisFree(context_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool try_to_connect() {
        redisFree(context_);
        context_ = port_ == 0 ? redisConnectUnix(kSocket) : redisConnect(kHost, port_);
        return context_ != nullptr && context_->err == 0;
    }
    void connect() {
        if (!try_to_connect()) throw std::runtime_error("redis: no connection");
    }
    /// Puts a command behind the others that are to be sent. @param parts of it
    void append(const std::vector<std::string>& parts) {
        std::vector<const char*> texts;
        std::vector<size_t> sizes;
        texts.reserve(parts.size());
        sizes.reserve(parts.size());
        for (const std::string& part : parts) {
            texts.push_back(part.data());
            sizes.push_back(part.size());
        }
        redisAppendCommandArgv(context_, static_cast<int>(parts.size()), texts.data(), sizes.data());
    }
    void flush() {
        for (int done = 0; done == 0;)
            if (redisBufferWrite(context_, &done) != REDIS_OK) fail();
    }
    /// The next reply, waited for.
    Reply reply() {
        void* reply = nullptr;
        if (redisGetReply(context_, &reply) != REDIS_OK) fail();
        Reply owned(static_cast<redisReply*>(reply));
        if (owned->type == REDIS_REPLY_ERROR) throw std::runtime_error(std::string("redis: ") + owned->str);
        return owned;
    }
    Reply command(const std::vector<std::string>& parts) {
        append(parts);
        return reply();
    }

private:
    [[noreturn]] void fail() const { throw std::runtime_error(std::string("redis: ") + context_->errstr); }

    int port_;
    redisContext* context_ = nullptr;
};

class Redis final : public QoContender {
public:
    Redis(const QoSetting& setting, int port) : publisher_(port) {
        unlink(kSocket);
        server_ = std::make_unique<QoChildProcess>(
            std::vector<std::string>{kProgram, "--port", std::to_string(port), "--bind", kHost, "--unixsocket", kSocket,
                                     "--save", "", "--appendonly", "no", "--dir", "/kivo"});
        qo_retry("redis", [this] { return publisher_.try_to_connect(); });
        publisher_.command({"PING"});
        for (int i = 0; i < setting.subscribers; ++i) {
            subscribers_.push_back(std::make_unique<Client>(port));
            subscribers_.back()->connect();
            subscribers_.back()->command({"SUBSCRIBE", kQoPublishedLeaf});
        }
        for (int i = 0; i < setting.others; ++i) {
            others_.push_back(std::make_unique<Client>(port));
            others_.back()->connect();
            others_.back()->command({"PING"});
        }
    }

    pid_t process() const override { return server_->id(); }
    void publish(const std::string& text) override {
        publisher_.append({"SET", kQoPublishedLeaf, text});
        publisher_.append({"PUBLISH", kQoPublishedLeaf, text});
        publisher_.flush();
    }
    void await_told(int subscriber, size_t size) override {
        const Reply message = subscribers_[static_cast<size_t>(subscriber)]->reply();
        if (message->elements != kMessageParts) throw std::runtime_error("redis: no message");
        qo_require_size(message->element[kMessageParts - 1]->len, size);
    }
    void finish_publish() override {
        publisher_.reply();
        publisher_.reply();
    }

    bool stores() const override { return true; }
    void store(const std::vector<QoLeaf>& leaves) override {
        for (const QoLeaf& leaf : leaves) {
            const std::string hash = top_level(leaf.path);
            publisher_.command({"HSET", hash, leaf.path, leaf.value});
            if (hashes_.empty() || hashes_.back() != hash) hashes_.push_back(hash);
        }
    }
    void read(QoExtent extent) override {
        if (extent == QoExtent::kLeaf) {
            publisher_.command({"HGET", top_level(kQoReadLeaf), kQoReadLeaf});
        } else if (extent == QoExtent::kSubtree) {
            publisher_.command({"HGETALL", kQoReadSubtree});
        } else {
            for (const std::string& hash : hashes_) publisher_.append({"HGETALL", hash});
            for (size_t hash = 0; hash < hashes_.size(); ++hash) publisher_.reply();
        }
    }

private:
    Client publisher_;
    std::vector<std::unique_ptr<Client>> subscribers_;
    std::vector<std::unique_ptr<Client>> others_;
    std::unique_ptr<QoChildProcess> server_;
    std::vector<std::string> hashes_;
};

}  // namespace

std::unique_ptr<QoContender> qo_start_redis(const QoSetting& setting) { return std::make_unique<Redis>(setting, 0); }

std::unique_ptr<QoContender> qo_start_redis_by_tcp(const QoSetting& setting) {
    return std::make_unique<Redis>(setting, qo_free_port());
}
