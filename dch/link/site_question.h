// site_question.h: asks a site for the rows of it that a hub misses, and takes its answer.
#ifndef DCH_LINK_SITE_QUESTION_H
#define DCH_LINK_SITE_QUESTION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "dch/link/answer_box.h"
#include "dch/link/collected_site.h"
#include "dch/link/nats.h"
#include "dch/link/row_header.h"
#include "dch/link/server_connection.h"
#include "dch/link/subject.h"

namespace dch {

// One thread.
class SiteQuestion {
 public:
  // Sends it. `site` is busy with it until its end; both outlive it. The answer comes to `box`.
  // Throws LinkError.
  SiteQuestion(ServerConnection& connection, CollectedSite& site, std::unique_ptr<AnswerBox> box);
  // Gives it up if it is still under way.
  ~SiteQuestion();
  SiteQuestion(const SiteQuestion&) = delete;
  SiteQuestion& operator=(const SiteQuestion&) = delete;

  struct Row {
    RowHeader header;
    RowSubject subject;
    NatsMessage message;  // its body is that of the row
  };
  // The next row of the answer that is to be kept; nothing when none is there now, or no more will
  // come. Waits for nothing. Throws LinkError.
  std::optional<Row> next();

  // none: the site does not hear it, or says nothing for two seconds, or not all within five. bad:
  // what it says is no answer.
  enum class Answer { underWay, none, bad, good };
  Answer answer() const { return _answer; }
  // The answer is good, and there are more rows than it had.
  bool hasMore() const { return _hasMore; }
  // Of the answer so far, those among them that are known.
  std::uint64_t rows() const { return _rows; }
  CollectedSite& site() const { return _site; }
  // For another question.
  std::unique_ptr<AnswerBox> takeBox() { return std::move(_box); }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Row> take(NatsMessage message);
  void end(Answer answer);

  CollectedSite& _site;
  std::unique_ptr<AnswerBox> _box;
  Answer _answer = Answer::underWay;
  bool _hasMore = false;
  Clock::time_point _latest;
  Clock::time_point _patientUntil;
  std::uint64_t _rows = 0;
  std::size_t _bytes = 0;
};

}  // namespace dch

#endif  // DCH_LINK_SITE_QUESTION_H
