#ifndef KORRIN_APPLICATIONOBJECT_H
#define KORRIN_APPLICATIONOBJECT_H

/// Sees to it that a QCoreApplication exists while the library is open.
///
/// Without one, Qt's nested event loops never end. A host's own object is used and never touched.
/// Otherwise the library makes one on a thread of its own, since the object must outlive neither
/// its thread nor the library's opened state, and the host's threads may come and go.
namespace ApplicationObject
{

/// Makes the object if the process has none. Not to be called while Qt is in use elsewhere.
/// Leaves the host's locale, environment, directory, signal dispositions and streams as they were.
void create();

/// Deletes the object if create() made it; no exchange may be running.
void destroy();

} // namespace ApplicationObject

#endif
