#pragma once

#include "companion/agent/agent.h"
#include "companion/home/home_service.h"

namespace kestrin::home {

/// The agent with an ear for what the home page asks for: the latest news, a summary of notes
/// (where there is no language model in their own first words), and questions, which a language
/// model answers. Only requests from no application are meant; what is dictated is never taken for
/// one. Everything else goes on to `agent`. Both must outlive this.
class HomeRequests final : public agent::Agent {
 public:
  HomeRequests(agent::Agent& agent, HomeService& home) : agent_(agent), home_(home) {}
  void process(const Json& body, Emit emit, std::function<void()> done,
               agent::CancelRef cancel) override;

 private:
  agent::Agent& agent_;
  HomeService& home_;
};

/// Whether the request is one for the news.
bool asksForNews(const Json& body);
/// Whether the request is a question: the agent is to decide, and finds nothing else in it.
bool asksQuestion(const Json& body);
/// The notes of a request to summarise them, in their own first words; empty when it is none.
std::string summaryOfNotes(const Json& body);

}  // namespace kestrin::home
