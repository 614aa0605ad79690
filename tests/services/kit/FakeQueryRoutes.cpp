#include "services/kit/FakeQueryRoutes.h"

#include <mutex>

struct FakeQueryRoutes::Routes {
    std::mutex mutex;
    std::vector<std::pair<Query, FakeServer::Handler>> entries;

    FakeResponse answer(const FakeRequest& request) {
        FakeServer::Handler handler;
        {
            std::lock_guard guard(mutex);
            for (const auto& [query, candidate] : entries) {
                bool matches = true;
                for (const auto& [key, value] : query) {
                    auto range = request.query.equal_range(key);
                    bool found = false;
                    for (auto it = range.first; it != range.second; ++it) found = found || it->second == value;
                    matches = matches && found;
                }
                if (matches) {
                    handler = candidate;
                    break;
                }
            }
        }
        return handler ? handler(request) : FakeResponse::text("no route for this query", 404);
    }
};

FakeQueryRoutes::FakeQueryRoutes(FakeServer& server, std::string method, std::string path)
    : _routes(std::make_shared<Routes>()) {
    server.route(method, path, [routes = _routes](const FakeRequest& request) { return routes->answer(request); });
}

void FakeQueryRoutes::add(Query query, FakeResponse response) {
    add(std::move(query), [response](const FakeRequest&) { return response; });
}

void FakeQueryRoutes::add(Query query, FakeServer::Handler handler) {
    std::lock_guard guard(_routes->mutex);
    _routes->entries.emplace_back(std::move(query), std::move(handler));
}
