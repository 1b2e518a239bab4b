#include "gate/daemon/DaemonDesk.h"

#include <exception>
#include <new>
#include <utility>

#include "json/JsonText.h"

namespace {

/// The longest answer that is taken apart.
constexpr std::size_t kMaxParsed = std::size_t{8} << 20;
constexpr JsonLimits kAnswerLimits{.depth = 32};

}  // namespace

class DaemonDesk::Question {
 public:
  Question(DaemonDesk& desk, std::string text, Take takeBytes, Done whenDone)
      : line(std::move(text)),
        take(std::move(takeBytes)),
        done(std::move(whenDone)),
        ask(std::make_unique<DaemonAsk>(desk.m_loop, kSilence)),
        m_desk(desk),
        m_isDeskAlive(desk.m_isAlive) {}
  ~Question() { Leave(); }
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  /// Its connection ends, and its place is free for another one.
  void Leave() {
    ask.reset();
    if (std::exchange(isAtWork, false) && *m_isDeskAlive) {
      --m_desk.m_atWork;
      m_desk.StartNext();
    }
  }

  std::string line;
  Take take;
  Done done;
  DaemonAsk::OnBytes onBytes;
  DaemonAsk::OnEnd onEnd;
  std::unique_ptr<DaemonAsk> ask;
  bool isAtWork = false;

 private:
  DaemonDesk& m_desk;
  std::shared_ptr<bool> m_isDeskAlive;
};

DaemonDesk::~DaemonDesk() { *m_isAlive = false; }

DaemonDesk::QuestionPtr DaemonDesk::Ask(const Json& request, Take take, Done done) {
  auto question =
      std::make_shared<Question>(*this, JsonText(request), std::move(take), std::move(done));
  Prepare(question);
  std::erase_if(m_waiting, [](const auto& waiting) { return waiting.expired(); });
  if (m_waiting.size() >= kMostWaiting) {
    m_refused.push_back(std::move(question->done));
    m_end.After({}, [this] {
      std::exception_ptr fault;
      for (const Done& refused : std::exchange(m_refused, {})) {
        try {
          refused(End::kBusy);
        } catch (const std::exception&) {
          // Those behind it are to hear of it.
          fault = std::current_exception();
        }
      }
      if (fault) {
        std::rethrow_exception(fault);
      }
    });
  } else {
    m_waiting.push_back(question);
    StartNext();
  }
  return question;
}

void DaemonDesk::StartNext() {
  while (m_atWork < kMostAtWork && !m_waiting.empty()) {
    const QuestionPtr question = m_waiting.front().lock();
    m_waiting.pop_front();
    if (question != nullptr) {
      Begin(question);
    }
  }
}

void DaemonDesk::Prepare(const QuestionPtr& question) {
  // Who asked holds the question; what it does may free it.
  const auto finish = [](const std::weak_ptr<Question>& weak, End end) {
    if (const QuestionPtr present = weak.lock()) {
      present->Leave();
      if (const Done done = std::exchange(present->done, nullptr)) {
        done(end);
      }
    }
  };
  question->onBytes = [this, finish, weak = std::weak_ptr(question)](std::string_view bytes) {
    m_memory.NoteBytes(bytes.size());
    const QuestionPtr present = weak.lock();
    if (present != nullptr && present->done && !present->take(bytes)) {
      finish(weak, End::kDone);
    }
  };
  question->onEnd = [finish, weak = std::weak_ptr(question)](DaemonAsk::End end) {
    finish(weak, end == DaemonAsk::End::kTimeOut ? End::kTimeOut : End::kNoDaemon);
  };
}

void DaemonDesk::Begin(const QuestionPtr& question) {
  ++m_atWork;
  question->isAtWork = true;
  // The end of another question begins it, out of which nothing may be thrown.
  question->ask->Start(m_path, std::move(question->line), std::move(question->onBytes),
                       std::move(question->onEnd));
}

DaemonDesk::QuestionPtr DaemonDesk::AskJson(const Json& request, DoneJson done) {
  const auto text = std::make_shared<std::string>();
  return Ask(
      request,
      [text](std::string_view bytes) {
        *text += bytes;
        return bytes.find('\n') == std::string_view::npos && text->size() <= kMaxParsed;
      },
      [text, done = std::move(done)](End end) {
        try {
          done(end == End::kDone && text->ends_with('\n') ? ParseJson(*text, kAnswerLimits).value
                                                          : Json(nullptr));
        } catch (const std::bad_alloc&) {
          done(Json(nullptr));
          throw;
        }
      });
}
