#include "hosts/linux/keyring/LibsecretKeychain.h"

#include <libsecret/secret.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace cadora {

namespace {

using Status = Keychain::Status;

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
    void operator()(SecretValue* value) const { secret_value_unref(value); }
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(GMainContext* context) const { g_main_context_unref(context); }
};
template <class T> using Reference = std::unique_ptr<T, Unref>;

void wipe(std::string& secret) {
    explicit_bzero(secret.data(), secret.size());
    secret.clear();
}

// Names the kind of item to keyring programs. Items are found by their attributes alone.
const SecretSchema* itemSchema() {
    static const SecretSchema schema = [] {
        SecretSchema result{};
        result.name = "com.norvelant.cadora.mac";
        result.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        result.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return result;
    }();
    return &schema;
}

Reference<GHashTable> attributes(const KeychainQuery& query) {
    GHashTable* table = g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, g_free);
    const auto insert = [table](const char* name, const std::string& value) {
        g_hash_table_insert(table, const_cast<char*>(name), g_strdup(value.c_str()));
    };
    insert("service", query.service);
    insert("account", query.account);
    return Reference<GHashTable>(table);
}

Reference<SecretValue> secretValue(const std::string& data) {
    return Reference<SecretValue>(
        secret_value_new(data.data(), static_cast<gssize>(data.size()), "text/plain"));
}

// The connection to the Secret Service, as the worker thread has it. Every call may block until the service
// answers or D-Bus gives up; failures are statuses.
class SecretServiceSession {
public:
    explicit SecretServiceSession(GCancellable* cancellable) : cancellable_(cancellable) {}

    Status copyMatching(const KeychainQuery& query, std::string* data) {
        const auto items = search(query, data ? Secrets::load : Secrets::leave);
        if (!items) {
            return LibsecretKeychain::notAvailable;
        }
        if (items->empty()) {
            return Keychain::itemNotFound;
        }
        const auto readable = firstUnlocked(*items);
        if (readable == items->end()) {
            return LibsecretKeychain::interactionNotAllowed;
        }
        if (data == nullptr) {
            return Keychain::success;
        }
        const Reference<SecretValue> value(secret_item_get_secret(readable->get()));
        if (!value) {
            return LibsecretKeychain::notAvailable;
        }
        gsize size = 0;
        const gchar* bytes = secret_value_get(value.get(), &size);
        data->assign(bytes, size);
        return Keychain::success;
    }

    // Other programs may have made further items of the same name; all follow, so that none brings an old
    // value back.
    Status update(const KeychainQuery& query, const std::string& data) {
        const auto value = secretValue(data);
        return changeAll(query, [&](SecretItem* item) {
            return secret_item_set_secret_sync(item, value.get(), cancellable_, nullptr);
        });
    }

    Status remove(const KeychainQuery& query) {
        return changeAll(
            query, [&](SecretItem* item) { return secret_item_delete_sync(item, cancellable_, nullptr); });
    }

    Status add(const KeychainQuery& query, const std::string& data) {
        const auto items = search(query, Secrets::leave);
        if (!items) {
            return LibsecretKeychain::notAvailable;
        }
        if (!items->empty()) {
            return LibsecretKeychain::duplicateItem;
        }
        const Reference<SecretCollection> collection(secret_collection_for_alias_sync(
            service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, cancellable_, nullptr));
        if (!collection) {
            return LibsecretKeychain::notAvailable;
        }
        if (secret_collection_get_locked(collection.get()) != FALSE) {
            return LibsecretKeychain::interactionNotAllowed;
        }
        const std::string label = "Cadora Helper (" + query.account + ")";
        const Reference<SecretItem> item(
            secret_item_create_sync(collection.get(), itemSchema(), attributes(query).get(), label.c_str(),
                                    secretValue(data).get(), SECRET_ITEM_CREATE_NONE, cancellable_, nullptr));
        return item ? Keychain::success : LibsecretKeychain::notAvailable;
    }

private:
    enum class Secrets { leave, load };
    using Items = std::vector<Reference<SecretItem>>;

    // A session dies with the process that it was opened with, so it is opened anew when the service's name
    // has changed hands. Opening starts a service that D-Bus can activate.
    bool open() {
        const Reference<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable_, nullptr));
        if (!bus || g_dbus_connection_is_closed(bus.get()) != FALSE) {
            return false;
        }
        // Losing the bus is for the program to judge, not for a library.
        g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
        const std::string owner = nameOwner(bus.get());
        if (!service_ || owner.empty() || owner != owner_) {
            service_.reset(secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION,
                                                    cancellable_, nullptr));
            owner_ = owner.empty() ? nameOwner(bus.get()) : owner;
        }
        return service_ != nullptr;
    }

    std::string nameOwner(GDBusConnection* bus) {
        const Reference<GVariant> answer(g_dbus_connection_call_sync(
            bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner",
            g_variant_new("(s)", "org.freedesktop.secrets"), G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE,
            -1, cancellable_, nullptr));
        const gchar* owner = "";
        if (answer) {
            g_variant_get(answer.get(), "(&s)", &owner);
        }
        return owner;
    }

    // Absent when the service can't be asked. Never unlocks, so never prompts.
    std::optional<Items> search(const KeychainQuery& query, Secrets secrets) {
        if (!open()) {
            return std::nullopt;
        }
        const int flags = SECRET_SEARCH_ALL | (secrets == Secrets::load ? SECRET_SEARCH_LOAD_SECRETS : 0);
        GError* error = nullptr;
        GList* const found =
            secret_service_search_sync(service_.get(), nullptr, attributes(query).get(),
                                       static_cast<SecretSearchFlags>(flags), cancellable_, &error);
        if (error != nullptr) {
            g_error_free(error);
            return std::nullopt;
        }
        Items items;
        for (const GList* link = found; link != nullptr; link = link->next) {
            items.emplace_back(SECRET_ITEM(link->data));
        }
        g_list_free(found);
        return items;
    }

    static bool isUnlocked(const Reference<SecretItem>& item) {
        return secret_item_get_locked(item.get()) == FALSE;
    }
    static Items::const_iterator firstUnlocked(const Items& items) {
        return std::find_if(items.begin(), items.end(), isUnlocked);
    }

    template <class Change> Status changeAll(const KeychainQuery& query, Change change) {
        const auto items = search(query, Secrets::leave);
        if (!items) {
            return LibsecretKeychain::notAvailable;
        }
        if (items->empty()) {
            return Keychain::itemNotFound;
        }
        Status status = Keychain::success;
        for (const auto& item : *items) {
            if (!isUnlocked(item)) {
                status = LibsecretKeychain::interactionNotAllowed;
            } else if (change(item.get()) == FALSE) {
                status = LibsecretKeychain::notAvailable;
            }
        }
        return status;
    }

    GCancellable* cancellable_;
    Reference<SecretService> service_;
    std::string owner_;
};

} // namespace

// The thread that talks to the service, and the queue of what it is asked. GLib's notices about the service
// arrive on the thread's own main context; no other loop knows of them.
class LibsecretKeychain::Worker : public std::enable_shared_from_this<Worker> {
public:
    // What a call carries to the thread and back.
    struct Exchange {
        explicit Exchange(std::string bytes = {}) : data(std::move(bytes)) {}
        Exchange(const Exchange&) = delete;
        Exchange& operator=(const Exchange&) = delete;
        ~Exchange() { wipe(data); }

        Status status = notAvailable;
        std::string data;
    };
    using Call = std::function<void(SecretServiceSession&, Exchange&)>;

    explicit Worker(std::chrono::milliseconds patience) : patience_(patience) {}

    void begin() {
        thread_ = std::thread([self = shared_from_this()] { self->work(); });
    }

    void end() {
        g_cancellable_cancel(cancellable_.get());
        std::unique_lock lock(mutex_);
        ending_ = true;
        g_main_context_wakeup(context_.get());
        const bool ended = changed_.wait_for(lock, std::chrono::seconds(1), [this] { return ended_; });
        lock.unlock();
        if (ended) {
            thread_.join();
        } else {
            thread_.detach();
        }
    }

    // False when no answer came in time; `exchange` may then still be in use by the thread.
    bool ask(const std::shared_ptr<Exchange>& exchange, Call call) {
        const auto request = std::make_shared<Request>(Request{std::move(call), exchange});
        const auto deadline = std::chrono::steady_clock::now() + patience_;
        std::unique_lock lock(mutex_);
        if (givenUp_) {
            return false;
        }
        requests_.push_back(request);
        g_main_context_wakeup(context_.get());
        if (changed_.wait_until(lock, deadline, [&] { return request->answered; })) {
            return true;
        }
        givenUp_ = calling_;
        std::erase(requests_, request);
        return false;
    }

private:
    struct Request {
        Call call;
        std::shared_ptr<Exchange> exchange;
        bool answered = false;
    };

    void work() {
        g_main_context_push_thread_default(context_.get());
        {
            SecretServiceSession session(cancellable_.get());
            std::unique_lock lock(mutex_);
            while (!ending_) {
                if (requests_.empty()) {
                    lock.unlock();
                    g_main_context_iteration(context_.get(), TRUE);
                    lock.lock();
                    continue;
                }
                const auto request = std::move(requests_.front());
                requests_.pop_front();
                calling_ = true;
                lock.unlock();
                request->call(session, *request->exchange);
                lock.lock();
                calling_ = false;
                givenUp_ = false;
                request->answered = true;
                changed_.notify_all();
            }
        }
        // The library lets go of its subscriptions in its own time, which is now.
        while (g_main_context_iteration(context_.get(), FALSE) != FALSE) {
        }
        g_main_context_pop_thread_default(context_.get());
        const std::lock_guard guard(mutex_);
        ended_ = true;
        changed_.notify_all();
    }

    std::chrono::milliseconds patience_;
    Reference<GCancellable> cancellable_{g_cancellable_new()};
    Reference<GMainContext> context_{g_main_context_new()};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::shared_ptr<Request>> requests_;
    bool calling_ = false;
    bool givenUp_ = false;
    bool ending_ = false;
    bool ended_ = false;
    std::thread thread_;
};

LibsecretKeychain::LibsecretKeychain(std::chrono::milliseconds patience)
    : worker_(std::make_shared<Worker>(patience)) {
    worker_->begin();
}

LibsecretKeychain::~LibsecretKeychain() {
    worker_->end();
}

Keychain::Status LibsecretKeychain::copyMatching(const KeychainQuery& query, std::string* data) {
    const auto exchange = std::make_shared<Worker::Exchange>();
    const bool wanted = data != nullptr;
    const bool answered =
        worker_->ask(exchange, [query, wanted](SecretServiceSession& session, Worker::Exchange& answer) {
            answer.status = session.copyMatching(query, wanted ? &answer.data : nullptr);
        });
    if (!answered) {
        return notAvailable;
    }
    if (wanted && exchange->status == success) {
        *data = exchange->data;
    }
    return exchange->status;
}

Keychain::Status LibsecretKeychain::update(const KeychainQuery& query, const std::string& data) {
    const auto exchange = std::make_shared<Worker::Exchange>(data);
    const bool answered =
        worker_->ask(exchange, [query](SecretServiceSession& session, Worker::Exchange& change) {
            change.status = session.update(query, change.data);
        });
    return answered ? exchange->status : notAvailable;
}

Keychain::Status LibsecretKeychain::add(const KeychainQuery& query, const std::string& data,
                                        KeychainAccessibility) {
    const auto exchange = std::make_shared<Worker::Exchange>(data);
    const bool answered =
        worker_->ask(exchange, [query](SecretServiceSession& session, Worker::Exchange& change) {
            change.status = session.add(query, change.data);
        });
    return answered ? exchange->status : notAvailable;
}

Keychain::Status LibsecretKeychain::remove(const KeychainQuery& query) {
    const auto exchange = std::make_shared<Worker::Exchange>();
    const bool answered =
        worker_->ask(exchange, [query](SecretServiceSession& session, Worker::Exchange& change) {
            change.status = session.remove(query);
        });
    return answered ? exchange->status : notAvailable;
}

} // namespace cadora
