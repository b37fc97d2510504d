#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/observable.h"

namespace ferrylink::app {

class ManagedObjectContext;
class SqliteDatabase;

// One favourite: the entity `Server`. Its `id` is the object's identity for
// as long as the process runs, saved or not. Both attributes may be absent in
// the store, though the app always sets them.
class Server {
public:
    uint64_t id() const { return id_; }
    const std::optional<std::string>& ip() const { return ip_; }
    const std::optional<std::string>& port() const { return port_; }

    // Main queue only; the change waits in the context for the next save.
    void setIp(std::string ip);
    void setPort(std::string port);

private:
    friend class ManagedObjectContext;
    Server(uint64_t id, std::weak_ptr<ManagedObjectContext> context) : id_(id), context_(std::move(context)) {}

    uint64_t id_;
    std::weak_ptr<ManagedObjectContext> context_;
    std::optional<std::string> ip_;
    std::optional<std::string> port_;
    std::optional<int64_t> rowId_;  // present once saved
};

// A copy of one favourite as the list shows it.
struct ServerRow {
    uint64_t id = 0;
    std::optional<std::string> ip;
    std::optional<std::string> port;

    bool operator==(const ServerRow&) const = default;
};

// The one context of the store, on the main queue: it holds every favourite,
// keeps changes until save(), and publishes the live list of rows.
class ManagedObjectContext : public std::enable_shared_from_this<ManagedObjectContext> {
public:
    // The live fetch of `Server`: every object of the context that is not
    // deleted, saved ones in the store's order, then new ones in the order
    // they were made. It follows changes once per turn of the main queue.
    Observable<std::vector<ServerRow>> servers;

    // A new favourite, made in this context and so inserted already.
    std::shared_ptr<Server> newServer();
    // Inserting an object of this context again changes nothing.
    void insert(const std::shared_ptr<Server>& server);
    void deleteObject(const std::shared_ptr<Server>& server);
    // The favourite with this id, unless it was deleted.
    std::shared_ptr<Server> server(uint64_t id) const;

    bool hasChanges() const;
    // Writes every change in one transaction; throws StoreError, leaving the
    // changes pending.
    void save();

private:
    friend class PersistentStore;
    friend class Server;
    explicit ManagedObjectContext(std::shared_ptr<SqliteDatabase> database);
    void load();
    void changed(Server& server);
    void schedulePublish();
    std::vector<ServerRow> rows() const;

    std::shared_ptr<SqliteDatabase> database_;
    uint64_t lastId_ = 0;
    std::vector<std::shared_ptr<Server>> objects_;  // the context's order
    std::vector<std::shared_ptr<Server>> deleted_;  // saved ones waiting for their DELETE
    std::vector<uint64_t> updated_;                 // saved ones with changed attributes
    bool publishScheduled_ = false;
};

// The favourites store: one SQLite file, built on first use of its context.
class PersistentStore {
public:
    static constexpr std::string_view persistentStoreName = "Ferrylink";

    // `file` is where the store lives; nothing is opened yet. An empty path
    // means that there is no place for the store, which the first use of the
    // context finds fatal.
    explicit PersistentStore(std::filesystem::path file);
    ~PersistentStore();

    // Builds the container on first use: opens the file and loads the rows.
    // A failure ends the process. Main queue only.
    ManagedObjectContext& viewContext();

    // Saves the context when it has changes; a failed save ends the process
    // with the reason. Main queue only.
    void save();

private:
    std::filesystem::path file_;
    std::shared_ptr<ManagedObjectContext> context_;
};

}  // namespace ferrylink::app
