// http_status.h: the statuses of HTTP that answers have.
#ifndef DCH_WEB_HTTP_STATUS_H
#define DCH_WEB_HTTP_STATUS_H

namespace dch::http_status {

constexpr int ok = 200;
constexpr int badRequest = 400;
constexpr int unauthorized = 401;
constexpr int forbidden = 403;
constexpr int notFound = 404;
constexpr int methodNotAllowed = 405;
constexpr int conflict = 409;
constexpr int headerTooLarge = 431;
constexpr int serviceUnavailable = 503;

}  // namespace dch::http_status

#endif  // DCH_WEB_HTTP_STATUS_H
