#include "usermodel/personality/personality_service.h"

#include <algorithm>

#include "platform/dispatch/background.h"

namespace kestrin {
namespace {

constexpr const char* domain = "PersonalityService";
constexpr std::chrono::seconds usualTimeout{30};

void addField(Bytes& body, const std::string& boundary, const std::string& name,
              const std::string& value) {
  body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" +
          value + "\r\n";
}

/// Those with an answer that can be heard first, in the order of the answers: the backend takes the
/// number of an audio part for that of its question.
std::string questionsText(const std::vector<PersonalityAnswer>& answers) {
  std::vector<PersonalityQuestion> ordered;
  auto open = std::vector(personalityQuestions().begin(), personalityQuestions().end());
  for (const PersonalityAnswer& answer : answers) {
    const auto question = std::find_if(
        open.begin(), open.end(), [&](const auto& each) { return each.id == answer.questionId; });
    if (answer.audio.empty() || question == open.end()) continue;
    ordered.push_back(*question);
    open.erase(question);
  }
  ordered.insert(ordered.end(), open.begin(), open.end());
  Json list = Json::array();
  for (const auto& question : ordered)
    list.push(Json::object({{"question", question.question}, {"hint", question.hint}}));
  return list.dump();
}

Bytes testForm(const std::string& boundary, const std::string& userId, const std::string& userName,
               const std::vector<PersonalityAnswer>& answers) {
  Bytes body;
  addField(body, boundary, "user_id", userId);
  if (!userName.empty()) addField(body, boundary, "user_name", userName);
  addField(body, boundary, "questions", questionsText(answers));
  int count = 0;
  for (const PersonalityAnswer& answer : answers) {
    if (answer.audio.empty()) continue;
    const std::string number = std::to_string(count++);
    body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"audio_" + number +
            "\"; filename=\"q" + number + ".wav\"\r\nContent-Type: audio/wav\r\n\r\n";
    body += answer.audio;
    body += "\r\n";
  }
  addField(body, boundary, "audio_count", std::to_string(count));
  body += "--" + boundary + "--\r\n";
  return body;
}

/// There was an answer, but nothing that can be read.
bool isUnreadable(const Error& error) { return error.domain != "HTTP"; }

/// The text under `key` of an answer that says it succeeded.
Result<std::string> textIn(const Result<Json>& answer, const char* key) {
  if (!answer) return fail(answer.error());
  if (answer->boolAt("success").value_or(false)) return answer->stringAt(key, "");
  return fail(domain, 1, answer->stringAt("error", "Unknown error"));
}

}  // namespace

PersonalityService::PersonalityService(Services services)
    : services_(std::move(services)), session_(services_.http.makeSession({})) {}

void PersonalityService::request(const char* method, const std::string& path,
                                 std::function<void(Json&)> fill, std::chrono::seconds timeout,
                                 Completion<Result<Json>> completion,
                                 const std::string& announcement) {
  const auto told = onMain(services_.dispatch, lifetime_, std::move(completion));
  services_.dispatch.globalQueue()->post([&id = services_.deviceId, &logger = services_.logger,
                                          session = session_, method, announcement,
                                          base = services_.endpoints.backend + path,
                                          fill = std::move(fill), timeout, told] {
    const std::string device = id.deviceId();
    if (!announcement.empty()) logger.print(announcement + device);
    Json body = Json::object({{"user_id", device}});
    if (fill) fill(body);
    HttpRequest request = jsonPost(base + urlEncode(device), fill ? body.dump() : "");
    request.method = method;
    request.timeout = timeout;
    request.setHeader("X-Device-Id", device);
    session->data(std::move(request), [told](const Result<HttpResponse>& response) {
      Result<Json> answer = response ? Json::parse(response->body) : fail(response.error());
      if (response && response->body.empty()) answer = fail(domain, 2, "No data received");
      if (answer && !answer->isObject()) answer = fail(domain, 3, "Invalid response");
      told(std::move(answer));
    });
  });
}

void PersonalityService::processPersonalityTest(std::vector<PersonalityAnswer> answers,
                                                Completion<Result<std::string>> completion) {
  const std::string url = services_.endpoints.backend + "/personality-test";
  if (!isHttpUrl(url)) return completion(fail(domain, 4, "Invalid URL"));
  const auto told = onMain<Result<Json>>(
      services_.dispatch, lifetime_,
      [this, completion = std::move(completion)](const Result<Json>& answer) {
        auto personality = textIn(answer, "personality");
        if (personality && personality->empty()) personality = fail(domain, 3, "Invalid response");
        if (personality) {
          services_.settings.set(UserPreferences::userAboutMeTranscriptKey,
                                 Json(answer->stringAt("qa_transcript", "")));
          services_.settings.set(UserPreferences::userPersonalityKey, Json(*personality));
          services_.settings.set(UserPreferences::personalityTestCompletedKey, Json(true));
        }
        completion(personality);
      });
  services_.dispatch.globalQueue()->post(
      [&id = services_.deviceId, session = session_, url, told, answers = std::move(answers),
       boundary = services_.random.uuid(),
       name = services_.settings.string(UserPreferences::userNameKey)] {
        HttpRequest request;
        request.method = "POST";
        request.url = url;
        request.timeout = testTimeout;
        request.setHeader("Content-Type", "multipart/form-data; boundary=" + boundary);
        request.body = testForm(boundary, id.deviceId(), name, answers);
        session->data(std::move(request), [told](const Result<HttpResponse>& response) {
          Result<Json> answer = response ? Json::parse(response->body) : fail(response.error());
          if (response && (!answer || !answer->isObject()))
            answer = fail(domain, 3, "Invalid response");
          told(std::move(answer));
        });
      });
}

void PersonalityService::refreshPersonality(const std::string& voiceProfileSummary,
                                            Completion<Result<std::string>> completion) {
  const std::string current = services_.settings.string(UserPreferences::userPersonalityKey);
  request(
      "POST", "/refresh-personality/",
      [=](Json& body) {
        body.set("voice_profile_summary", voiceProfileSummary);
        if (!current.empty()) body.set("current_personality", current);
      },
      refreshTimeout,
      [this, completion = std::move(completion)](const Result<Json>& answer) {
        auto personality = textIn(answer, "personality");
        if (personality && personality->empty())
          personality = fail(domain, 5, "Refresh returned empty");
        if (personality)
          services_.settings.set(UserPreferences::userPersonalityKey, Json(*personality));
        completion(personality);
      });
}

bool PersonalityService::isFresh(const std::optional<SteadyTime>& time) const {
  return time && services_.dispatch.clock().steadyNow() - *time < cacheExpiry;
}

void PersonalityService::getArchetype(Completion<Archetype> completion) {
  if (cachedArchetype_ && isFresh(lastFetchTime_)) return completion(*cachedArchetype_);
  request("GET", "/archetype/", {}, usualTimeout,
          [this, completion = std::move(completion)](const Result<Json>& answer) {
            const Json* record = answer && answer->boolAt("success").value_or(false)
                                     ? answer->objectAt("archetype")
                                     : nullptr;
            const auto archetype = record ? Archetype::fromJson(*record) : std::nullopt;
            if (!archetype) {
              const std::string why =
                  answer ? "no archetype in the answer" : answer.error().description;
              services_.logger.print((answer || isUnreadable(answer.error())
                                          ? "❌ Failed to parse archetype: "
                                          : "❌ Failed to fetch archetype: ") +
                                     why);
              isDefault_ = true;
              if (!cachedArchetype_ && !services_.preferences.userArchetype())
                setStylePrompt(Archetype::defaultArchetype().stylePrompt);
              return completion(Archetype::defaultArchetype());
            }
            isDefault_ = answer->boolAt("isDefault").value_or(false);
            cachedArchetype_ = archetype;
            setStylePrompt(archetype->stylePrompt);
            lastFetchTime_ = services_.dispatch.clock().steadyNow();
            services_.logger.print("🎭 Archetype loaded: " + archetype->name +
                                   " (default: " + (isDefault_ ? "true" : "false") + ")");
            completion(*archetype);
          });
}

void PersonalityService::classifyArchetype(Completion<Result<Archetype>> completion) {
  request(
      "POST", "/classify-archetype/", [](Json&) {}, usualTimeout,
      [this, completion = std::move(completion)](const Result<Json>& answer) {
        const Json* record = answer && answer->boolAt("success").value_or(false)
                                 ? answer->objectAt("archetype")
                                 : nullptr;
        const auto archetype = record ? Archetype::fromJson(*record) : std::nullopt;
        if (!archetype) {
          const std::string why = answer ? answer->stringAt("error", "Classification failed")
                                         : answer.error().description;
          services_.logger.print((answer || isUnreadable(answer.error())
                                      ? "❌ Failed to parse classification result: "
                                      : "❌ Failed to classify archetype: ") +
                                 why);
          return completion(fail("ArchetypeService", 1, why));
        }
        cachedArchetype_ = archetype;
        setStylePrompt(archetype->stylePrompt);
        isDefault_ = false;
        lastFetchTime_ = services_.dispatch.clock().steadyNow();
        services_.preferences.setUserArchetype(archetype->toJson());
        services_.logger.print("🎭 Archetype classified: " + archetype->name);
        completion(*archetype);
      });
}

std::optional<std::string> PersonalityService::stylePrompt() const {
  std::lock_guard lock(mutex_);
  return stylePrompt_;
}

void PersonalityService::setStylePrompt(std::string stylePrompt) {
  std::lock_guard lock(mutex_);
  stylePrompt_ = std::move(stylePrompt);
}

void PersonalityService::fetchProfile(bool force,
                                      Completion<std::optional<VoiceProfile>> completion) {
  if (!force && profile_ && isFresh(lastFetch_)) return completion(profile_);
  request(
      "GET", "/voice-profile/", {}, usualTimeout,
      [this, forgotten = forgotten_,
       completion = std::move(completion)](const Result<Json>& answer) {
        if (!answer) {
          services_.logger.print((isUnreadable(answer.error()) ? "❌ Voice profile parse error: "
                                                               : "❌ Voice profile fetch error: ") +
                                 answer.error().description);
          return completion(std::nullopt);
        }
        const Json* record =
            answer->boolAt("success").value_or(false) ? answer->objectAt("profile") : nullptr;
        if (!record) {
          services_.logger.print("📊 No voice profile found");
          return completion(std::nullopt);
        }
        const auto profile = VoiceProfile::fromJson(*record);
        // A dictation since then is not in it: the next reader asks again.
        if (forgotten == forgotten_) {
          profile_ = profile;
          lastFetch_ = services_.dispatch.clock().steadyNow();
        }
        services_.logger.print("✅ Voice profile loaded: " + std::to_string(profile.sampleCount) +
                               " samples");
        completion(profile);
      },
      "📊 Fetching voice profile for ");
}

void PersonalityService::forgetVoiceProfile() {
  ++forgotten_;
  profile_.reset();
  lastFetch_.reset();
}

}  // namespace kestrin
