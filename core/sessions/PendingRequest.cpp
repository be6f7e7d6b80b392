#include "sessions/PendingRequest.h"

#include "foundation/JSONCoding.h"

namespace tidewick {

void writeJSON(JSONWriter& out, const PendingRequest& request) {
    out.beginObject();
    out.member("id", request.id);
    out.member("kind", request.kind);
    out.member("title", request.title);
    out.member("detail", request.detail);
    out.member("createdAt", request.createdAt);
    out.member("deadline", request.deadline);
    if (request.isQuestion())
        out.member("questions", request.questions);
    out.member("alwaysAllow", request.alwaysAllow);
    out.endObject();
}

bool readJSON(JSONReader& in, PendingRequest& out) {
    return readObject(
        in, JSONMember::required("id", out.id), JSONMember::required("kind", out.kind),
        JSONMember::required("title", out.title), JSONMember::optional("detail", out.detail),
        JSONMember::required("createdAt", out.createdAt),
        JSONMember::required("deadline", out.deadline),
        JSONMember::optional("questions", out.questions),
        JSONMember::optional("alwaysAllow", out.alwaysAllow));
}

} // namespace tidewick
