// subject.h: the subjects that the rows of a site have, in the stream and live.
#ifndef DCH_LINK_SUBJECT_H
#define DCH_LINK_SUBJECT_H

#include <optional>
#include <string>
#include <string_view>

namespace dch {

// A name as one token of a subject, which blanks, dots and wildcards would break: A-Z a-z 0-9 - _
// stay, other bytes become %XX; an empty name is "%". No two names have the same token.
std::string subjectToken(std::string_view name);

// Nothing unless subjectToken wrote it.
std::optional<std::string> nameOfToken(std::string_view token);

// Of the rows of a group.
struct RowSubject {
  std::string site;
  std::string application;
  std::string group;

  friend bool operator==(const RowSubject&, const RowSubject&) = default;
};

// zord.rows.SITE.APPL.GROUP
std::string rowSubject(std::string_view site, std::string_view application, std::string_view group);

// Nothing unless rowSubject wrote it.
std::optional<RowSubject> parseRowSubject(std::string_view text);

// The same for rows on their way to subscribers: zord.live.SITE.APPL.GROUP. Other names than a site
// may have, and an application and a group may be registered with, are nothing, too.
std::string liveSubject(std::string_view site, std::string_view application,
                        std::string_view group);
std::optional<RowSubject> parseLiveSubject(std::string_view text);

// Those that the live rows of a topic have, whichever their site is; nothing for a topic that no
// rows have.
std::optional<std::string> liveSubjectsOf(std::string_view topic);

}  // namespace dch

#endif  // DCH_LINK_SUBJECT_H
