#include "usermodel/user_preferences.h"

namespace kestrin {

const std::map<std::string, std::string>& defaultPrompts() {
  static const std::map<std::string, std::string> prompts{
      {"email",
       "Clean up the spoken text and format it as a professional email. Remove speech artifacts, "
       "fix grammar, extract recipient name if mentioned, and sign with the user's name."},
      {"dictation",
       "Fix punctuation and capitalization only. Do NOT change any words. Do NOT add or remove "
       "content. Output the same text with proper punctuation."},
      {"chat",
       "Clean up spoken text into a natural chat message ready to send. Match the user's "
       "personality and communication style if provided. Keep it casual, concise, and true to the "
       "speaker's voice. Add emoji only if it fits their style. Output ONLY the message."},
      {"compose",
       "Transform spoken ideas into polished, expressive text. Use vivid language and maintain the "
       "speaker's voice. Expand on their ideas naturally."},
      {"notes",
       "Organize the spoken content into clear, structured notes. Use bullet points or numbered "
       "lists. Keep it professional and concise. Include all mentioned names, dates, and action "
       "items."},
      {"draw",
       "Transform the description into a detailed image generation prompt. Keep ALL original "
       "content and ideas. Expand with vivid visual details: colors, lighting, composition, "
       "style."},
      {"search",
       "Extract ONLY the search intent from the speech. Remove filler words like 'search for', "
       "'look up', 'find me'. Keep the core search terms exactly as spoken. Output only the search "
       "query."},
      {"command",
       "Parse the spoken command into a structured action. Identify the action type (open app, "
       "volume, brightness, etc.) and extract the target parameter."},
      {"ide_assist",
       "Convert speech into a clean, well-formatted request for an AI coding assistant. Keep "
       "technical terms and file names intact. DO NOT write code — write the request or question "
       "clearly. Fix speech-to-text errors in technical terms. Output ONLY the cleaned request."},
  };
  return prompts;
}

const std::map<std::string, double>& defaultTemperatures() {
  static const std::map<std::string, double> temperatures{
      {"email", 0.3}, {"dictation", 0.0}, {"chat", 0.7},    {"compose", 0.8},    {"notes", 0.3},
      {"draw", 0.9},  {"search", 0.0},    {"command", 0.0}, {"ide_assist", 0.2},
  };
  return temperatures;
}

const std::map<std::string, std::string>& defaultLiveAssistPrompts() {
  static const std::map<std::string, std::string> prompts{
      {"sales_call",
       "You are an AI assistant helping during a sales call. Provide real-time insights, suggest "
       "talking points, highlight objections, and recommend next steps. Be concise and actionable. "
       "Focus on understanding customer needs, identifying pain points, and suggesting solutions."},
      {"meeting",
       "You are an AI assistant helping during a meeting. Provide real-time insights, summarize "
       "key points, identify action items, and suggest follow-ups. Be concise and professional. "
       "Focus on capturing decisions, tracking agenda items, and ensuring nothing is missed."},
  };
  return prompts;
}

}  // namespace kestrin
