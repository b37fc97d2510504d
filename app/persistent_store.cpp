#include "app/persistent_store.h"

#include <algorithm>

#include "app/main_thread.h"
#include "app/sqlite_database.h"
#include "foundation/dispatch_queue.h"
#include "foundation/fatal.h"

namespace ferrylink::app {

namespace {

std::optional<std::string> textOf(const SqlValue& value) {
    if (auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    return std::nullopt;
}

SqlValue valueOf(const std::optional<std::string>& text) {
    if (text) {
        return *text;
    }
    return std::monostate{};
}

}  // namespace

void Server::setIp(std::string ip) {
    ip_ = std::move(ip);
    if (auto context = context_.lock()) {
        context->changed(*this);
    }
}

void Server::setPort(std::string port) {
    port_ = std::move(port);
    if (auto context = context_.lock()) {
        context->changed(*this);
    }
}

ManagedObjectContext::ManagedObjectContext(std::shared_ptr<SqliteDatabase> database)
    : database_(std::move(database)) {}

void ManagedObjectContext::load() {
    database_->execute(
        "CREATE TABLE IF NOT EXISTS Server ("
        " rowid INTEGER PRIMARY KEY,"
        " ip TEXT,"
        " port TEXT)");
    for (auto& row : database_->query("SELECT rowid, ip, port FROM Server ORDER BY rowid")) {
        std::shared_ptr<Server> server(new Server(++lastId_, weak_from_this()));
        server->rowId_ = std::get<int64_t>(row[0]);
        server->ip_ = textOf(row[1]);
        server->port_ = textOf(row[2]);
        objects_.push_back(std::move(server));
    }
    servers.set(rows());
}

std::shared_ptr<Server> ManagedObjectContext::newServer() {
    assertMainThread();
    std::shared_ptr<Server> server(new Server(++lastId_, weak_from_this()));
    objects_.push_back(server);
    schedulePublish();
    return server;
}

void ManagedObjectContext::insert(const std::shared_ptr<Server>& server) {
    assertMainThread();
    if (std::find(objects_.begin(), objects_.end(), server) != objects_.end()) {
        return;
    }
    // An object deleted before its save comes back as it was.
    if (auto it = std::find(deleted_.begin(), deleted_.end(), server); it != deleted_.end()) {
        deleted_.erase(it);
    }
    objects_.push_back(server);
    schedulePublish();
}

void ManagedObjectContext::deleteObject(const std::shared_ptr<Server>& server) {
    assertMainThread();
    auto it = std::find(objects_.begin(), objects_.end(), server);
    if (it == objects_.end()) {
        return;
    }
    objects_.erase(it);
    if (server->rowId_) {
        deleted_.push_back(server);
    }
    std::erase(updated_, server->id());
    schedulePublish();
}

std::shared_ptr<Server> ManagedObjectContext::server(uint64_t id) const {
    assertMainThread();
    for (const auto& server : objects_) {
        if (server->id() == id) {
            return server;
        }
    }
    return nullptr;
}

bool ManagedObjectContext::hasChanges() const {
    assertMainThread();
    bool anyNew = std::any_of(objects_.begin(), objects_.end(), [](const auto& server) { return !server->rowId_; });
    return anyNew || !deleted_.empty() || !updated_.empty();
}

void ManagedObjectContext::save() {
    assertMainThread();
    // Row ids are handed out only once the whole transaction stands, so a
    // failed save leaves every change pending as it was.
    std::vector<std::pair<Server*, int64_t>> inserted;
    database_->transaction([&] {
        for (const auto& server : deleted_) {
            database_->query("DELETE FROM Server WHERE rowid = ?", {*server->rowId_});
        }
        for (const auto& server : objects_) {
            if (!server->rowId_) {
                database_->query("INSERT INTO Server (ip, port) VALUES (?, ?)",
                                 {valueOf(server->ip_), valueOf(server->port_)});
                inserted.emplace_back(server.get(), database_->lastInsertRowId());
            } else if (std::find(updated_.begin(), updated_.end(), server->id()) != updated_.end()) {
                database_->query("UPDATE Server SET ip = ?, port = ? WHERE rowid = ?",
                                 {valueOf(server->ip_), valueOf(server->port_), *server->rowId_});
            }
        }
    });
    for (auto& [server, rowId] : inserted) {
        server->rowId_ = rowId;
    }
    deleted_.clear();
    updated_.clear();
}

void ManagedObjectContext::changed(Server& server) {
    assertMainThread();
    if (server.rowId_ && std::find(updated_.begin(), updated_.end(), server.id()) == updated_.end()) {
        updated_.push_back(server.id());
    }
    schedulePublish();
}

void ManagedObjectContext::schedulePublish() {
    // Changes made in one block (make, set both fields, save) reach the list
    // as one update, after the block.
    if (publishScheduled_) {
        return;
    }
    publishScheduled_ = true;
    foundation::DispatchQueue::main().async([weakSelf = weak_from_this()] {
        if (auto self = weakSelf.lock()) {
            self->publishScheduled_ = false;
            self->servers.set(self->rows());
        }
    });
}

std::vector<ServerRow> ManagedObjectContext::rows() const {
    std::vector<ServerRow> result;
    result.reserve(objects_.size());
    for (const auto& server : objects_) {
        result.push_back({server->id(), server->ip_, server->port_});
    }
    return result;
}

PersistentStore::PersistentStore(std::filesystem::path file) : file_(std::move(file)) {}

PersistentStore::~PersistentStore() = default;

ManagedObjectContext& PersistentStore::viewContext() {
    assertMainThread();
    if (context_) {
        return *context_;
    }
    if (file_.empty()) {
        foundation::fatalFault("persistentContainer: Failed to retrieve a persistent store description.");
    }
    try {
        auto database = std::make_shared<SqliteDatabase>(file_);
        context_ = std::shared_ptr<ManagedObjectContext>(new ManagedObjectContext(std::move(database)));
        context_->load();
    } catch (const StoreError& error) {
        foundation::fatalFault("Unresolved error " + error.description());
    }
    return *context_;
}

void PersistentStore::save() {
    auto& context = viewContext();
    if (!context.hasChanges()) {
        return;
    }
    try {
        context.save();
    } catch (const StoreError& error) {
        foundation::fatalFault(error.localizedDescription());
    }
}

}  // namespace ferrylink::app
