// SPDX-License-Identifier: MIT
#include "galleryroutes.h"

#include "httpreplies.h"
#include "servicecontext.h"
#include "servicestate.h"

#include <QFile>
#include <QJsonArray>
#include <QUrl>
#include <httplib.h>

using HttpReplies::text;

namespace {

// A key as a path: every segment escaped, the slashes kept.
QString keyPath(const std::string &key) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text(key), "/"));
}

} // namespace

GalleryRoutes::GalleryRoutes(ServiceContext &context)
    : m_context(context) {
    QFile page(":/devservice/gallery.html");
    if (page.open(QIODevice::ReadOnly))
        m_page = page.readAll().toStdString();
}

void GalleryRoutes::install(httplib::Server &server) {
    const auto page = [this](const httplib::Request &request, httplib::Response &response) {
        this->page(request, response);
    };
    server.Get("/live/([^/]+)", page);
    server.Get("/gallery/([^/]+)", page);
    server.Get(R"(/live/([^/]+)/previews\.json)",
               [this](const httplib::Request &request, httplib::Response &response) {
                   previews(request, response);
               });
}

void GalleryRoutes::page(const httplib::Request &request, httplib::Response &response) const {
    if (!m_context.state.sessionBySlug(request.matches[1].str()))
        return HttpReplies::problem(response, 404, "no live session " + request.matches[1].str());
    response.set_content(m_page, "text/html; charset=utf-8");
}

void GalleryRoutes::previews(const httplib::Request &request, httplib::Response &response) const {
    const auto session = m_context.state.sessionBySlug(request.matches[1].str());
    if (!session)
        return HttpReplies::problem(response, 404, "no live session " + request.matches[1].str());
    QJsonArray previews;
    for (auto file = session->files.rbegin(); file != session->files.rend(); ++file) {
        previews.append(QJsonObject{
            {"key", text(file->key)},
            {"src", '/' + text(file->bucket) + '/' + keyPath(file->key)},
            {"registered_at", text(file->registeredAt)},
        });
    }
    response.set_header("Cache-Control", "no-store");
    HttpReplies::json(response, 200,
                      QJsonObject{{"name", text(session->name)},
                                  {"ended", session->ended},
                                  {"previews", previews}});
}
