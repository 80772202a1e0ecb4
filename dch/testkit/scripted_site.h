// scripted_site.h: a site that publishes the rows it is told to, and answers as it is told.
#ifndef DCH_TESTKIT_SCRIPTED_SITE_H
#define DCH_TESTKIT_SCRIPTED_SITE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "dch/core/row_name.h"
#include "dch/link/row_fetch.h"
#include "dch/link/row_header.h"

namespace dch::testkit {

// Its rows are those of one run, with all numbers from 1 on.
class ScriptedSite {
 public:
  // `url` is of a server that has the stream. Nobody hears questions before setScript(). Throws
  // std::runtime_error, as the others do.
  ScriptedSite(const std::string& url, std::string name, int run = 1);
  ~ScriptedSite();
  ScriptedSite(const ScriptedSite&) = delete;
  ScriptedSite& operator=(const ScriptedSite&) = delete;

  // Returns when they are in the stream.
  void publish(const std::vector<std::int64_t>& numbers);
  // Whatever it is. Without a header when that is empty.
  void publish(const std::string& subject, const std::string& header, const std::string& body);

  RowName nameOf(std::int64_t number) const;
  RowHeader headerOf(std::int64_t number) const;
  std::string subject() const;

  // What is sent for a question: rows, then the end or a sentence if there is one.
  struct Answer {
    std::vector<std::int64_t> rows{};
    std::optional<FetchEnd> end{};
    std::string error{};
  };
  using Script = std::function<Answer(const std::vector<RowName>& question)>;
  // From now on, and so does the site say that it is there. Called on a thread of the site's own.
  void setScript(Script script);

  // That of a site whose file has all rows up to that one.
  Answer fileAnswer(const std::vector<RowName>& question, std::int64_t last) const;

  // So far.
  std::vector<std::vector<RowName>> questions() const;

 private:
  struct Ends;

  void answerAll();
  void sayThatItIsThere();
  void answer(const std::string& asker, const std::vector<RowName>& question);

  const std::string _name;
  const int _run;
  const std::unique_ptr<Ends> _ends;
  mutable std::mutex _mutex;
  Script _script;
  std::vector<std::vector<RowName>> _questions;
  std::uint64_t _timesSaid = 0;
  std::atomic<bool> _isEnding = false;
  std::thread _thread;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SCRIPTED_SITE_H
