#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "testkit/FakeServer.h"

/// Routes on one path that differ by their query, for services that put the
/// action into the query ("/?action=list_projects"). A request is answered
/// by the first route whose every listed parameter it carries with that
/// value; others get 404.
///
///     FakeQueryRoutes routes(server, "GET", "/");
///     routes.add({{"action", "list_projects"}}, FakeResponse::json(...));
class FakeQueryRoutes {
public:
    using Query = std::map<std::string, std::string>;

    FakeQueryRoutes(FakeServer& server, std::string method, std::string path);

    void add(Query query, FakeResponse response);
    void add(Query query, FakeServer::Handler handler);

private:
    struct Routes;
    std::shared_ptr<Routes> _routes;
};
