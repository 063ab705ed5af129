#include "platform/linux/desktop_entries.h"

#include <filesystem>
#include <fstream>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <iterator>

#include "platform/linux/launch_apart.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

const char* const domain = "Workspace";
/// A program installed while we run is found after this time, or at once when it is asked for.
constexpr std::chrono::seconds listLifetime(30);

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
  void operator()(GError* error) const { g_error_free(error); }
};
using EntryInfo = std::shared_ptr<GDesktopAppInfo>;
using GErrorPointer = std::unique_ptr<GError, Unref>;

std::string safe(const char* text) { return text ? text : ""; }

std::string baseName(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

std::string withoutSuffix(std::string id) {
  const std::string suffix = ".desktop";
  if (id.size() > suffix.size() &&
      id.compare(id.size() - suffix.size(), suffix.size(), suffix) == 0)
    id.resize(id.size() - suffix.size());
  return id;
}

std::string variableOf(int pid, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
  std::string variable;
  while (std::getline(file, variable, '\0')) {
    if (variable.compare(0, name.size() + 1, name + "=") == 0)
      return variable.substr(name.size() + 1);
  }
  return {};
}

/// The entry that the program was launched from, where the launcher said so for this very process
/// (its children inherit the variables).
std::string launchedFrom(int pid) {
  if (variableOf(pid, "GIO_LAUNCHED_DESKTOP_FILE_PID") != std::to_string(pid)) return {};
  return text::lower(withoutSuffix(baseName(variableOf(pid, "GIO_LAUNCHED_DESKTOP_FILE"))));
}

bool isWebOrMail(const std::string& address) {
  const std::string lower = text::lower(address);
  return lower.rfind("http://", 0) == 0 || lower.rfind("https://", 0) == 0 ||
         lower.rfind("mailto:", 0) == 0;
}

}  // namespace

std::string executableOf(int pid) {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", error);
  return error ? std::string() : path.filename().string();
}

struct DesktopEntries::Entry {
  InstalledApplication application;
  std::string windowClass;  ///< StartupWMClass, lower-case
  EntryInfo info;
};

DesktopEntries::DesktopEntries() = default;
DesktopEntries::~DesktopEntries() = default;

DesktopEntries::List DesktopEntries::list(bool fresh) {
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (list_ && !fresh && now - readAt_ < listLifetime) return list_;
  auto entries = std::make_shared<std::vector<Entry>>();
  GList* infos = g_app_info_get_all();
  for (GList* i = infos; i; i = i->next) {
    if (!G_IS_DESKTOP_APP_INFO(i->data)) continue;
    EntryInfo info(G_DESKTOP_APP_INFO(g_object_ref(i->data)), Unref());
    GAppInfo* app = G_APP_INFO(info.get());
    entries->push_back(
        {{text::lower(withoutSuffix(safe(g_app_info_get_id(app)))), safe(g_app_info_get_name(app)),
          baseName(safe(g_app_info_get_executable(app)))},
         text::lower(safe(g_desktop_app_info_get_startup_wm_class(info.get()))),
         info});
  }
  g_list_free_full(infos, g_object_unref);
  list_ = entries;
  readAt_ = now;
  return list_;
}

template <class Wanted>
std::optional<DesktopEntries::Entry> DesktopEntries::search(Wanted wanted) {
  const List entries = list(false);
  for (const Entry& entry : *entries) {
    if (wanted(entry)) return entry;
  }
  return std::nullopt;
}

std::vector<InstalledApplication> DesktopEntries::installed() {
  std::vector<InstalledApplication> shown;
  const List entries = list(false);
  for (const Entry& entry : *entries) {
    if (g_app_info_should_show(G_APP_INFO(entry.info.get()))) shown.push_back(entry.application);
  }
  return shown;
}

std::optional<InstalledApplication> DesktopEntries::entryOf(const ProgramTraits& traits) {
  const auto byId = [&](const std::string& wanted) {
    const std::string id = text::lower(withoutSuffix(wanted));
    return id.empty() ? std::nullopt
                      : search([&](const Entry& e) { return e.application.desktopId == id; });
  };
  const auto byClass = [&](const std::string& name) {
    const std::string wanted = text::lower(name);
    return wanted.empty() ? std::nullopt
                          : search([&](const Entry& e) { return e.windowClass == wanted; });
  };
  auto found = byId(launchedFrom(traits.pid));
  if (!found) found = byId(traits.applicationId);
  if (!found) found = byClass(traits.className);
  if (!found) found = byClass(traits.instanceName);
  if (!found) found = byId(traits.className);
  if (!found) found = byId(traits.instanceName);
  if (!found) {
    const std::string executable = executableOf(traits.pid);
    if (!executable.empty())
      found = search([&](const Entry& e) { return e.application.executable == executable; });
  }
  if (!found) return std::nullopt;
  return found->application;
}

std::optional<InstalledApplication> DesktopEntries::find(const std::string& application) {
  const std::string wanted = text::lower(withoutSuffix(text::trim(application)));
  if (wanted.empty()) return std::nullopt;
  const auto look = [&]() -> std::optional<InstalledApplication> {
    for (const auto part : {&InstalledApplication::desktopId, &InstalledApplication::name,
                            &InstalledApplication::executable}) {
      auto found =
          search([&](const Entry& e) { return text::lower(e.application.*part) == wanted; });
      if (found) return found->application;
    }
    return std::nullopt;
  };
  auto found = look();
  if (!found) {
    list(true);  // it may have been installed just now
    found = look();
  }
  return found;
}

Status DesktopEntries::launch(const std::string& application) {
  const auto known = find(application);
  if (!known) return fail(domain, 3, "There is no application \"" + application + "\"");
  const auto entry =
      search([&](const Entry& e) { return e.application.desktopId == known->desktopId; });
  if (!entry) return fail(domain, 3, "There is no application \"" + application + "\"");
  GError* error = nullptr;
  launchApart(G_APP_INFO(entry->info.get()), nullptr, &error);
  const GErrorPointer owned(error);
  if (error) return fail(domain, 4, known->name + " could not be started: " + error->message);
  return {};
}

Status DesktopEntries::open(const std::string& addressOrPath) {
  std::string address = addressOrPath;
  if (!isWebOrMail(address)) {
    std::error_code failed;
    const auto path = std::filesystem::absolute(addressOrPath, failed);
    if (failed || !std::filesystem::exists(path, failed))
      return fail(domain, 5,
                  "Neither a web or mail address nor an existing path: " + addressOrPath);
    char* uri = g_filename_to_uri(path.c_str(), nullptr, nullptr);
    address = safe(uri);
    g_free(uri);
  }
  GError* error = nullptr;
  openApart(address.c_str(), &error);
  const GErrorPointer owned(error);
  if (error) return fail(domain, 4, addressOrPath + " could not be opened: " + error->message);
  return {};
}

}  // namespace kestrin
