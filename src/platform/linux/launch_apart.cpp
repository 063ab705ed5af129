#include "platform/linux/launch_apart.h"

#include <fcntl.h>
#include <gio/gdesktopappinfo.h>

#include "platform/linux/descriptor.h"

namespace kestrin {

bool launchApart(GAppInfo* application, GList* uris, GError** error) {
  const bool inherits =
      G_IS_DESKTOP_APP_INFO(application) &&
      !g_desktop_app_info_get_boolean(G_DESKTOP_APP_INFO(application), "DBusActivatable");
  const Descriptor nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
  // What the session bus starts is no child of ours.
  if (!inherits || !nowhere.valid()) {
    return g_app_info_launch_uris(application, uris, nullptr, error) != FALSE;
  }
  return g_desktop_app_info_launch_uris_as_manager_with_fds(
             G_DESKTOP_APP_INFO(application), uris, nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr,
             nullptr, nullptr, nowhere.get(), nowhere.get(), nowhere.get(), error) != FALSE;
}

bool openApart(const char* uri, GError** error) {
  GFile* file = g_file_new_for_uri(uri);
  GAppInfo* application = g_file_query_default_handler(file, nullptr, nullptr);
  g_object_unref(file);
  // Without one, a portal may still know what to do.
  if (application == nullptr)
    return g_app_info_launch_default_for_uri(uri, nullptr, error) != FALSE;
  GList uris{const_cast<char*>(uri), nullptr, nullptr};
  const bool launched = launchApart(application, &uris, error);
  g_object_unref(application);
  return launched;
}

}  // namespace kestrin
