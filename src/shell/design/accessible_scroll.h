#pragma once

namespace kestrin {

/// From now on scroll areas answer assistive programs themselves. The toolkit's own answer takes
/// any number for that of a child: a program that still counts a scroll bar which has just gone
/// ends the application. Once, after the application object is made.
void installAccessibleScrollAreas();

}  // namespace kestrin
