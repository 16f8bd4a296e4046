#include "core/work_item.h"

#include <memory>

namespace {

/// A routine of the service that is to run on the system thread pool.
struct WorkItem {
    void (*routine)(ServiceState& service);
    ServiceState* service;
};

/// Runs on a thread of the system thread pool.
DWORD WINAPI RunWorkItem(void* context) {
    const std::unique_ptr<WorkItem> item(static_cast<WorkItem*>(context));
    item->routine(*item->service);
    return 0;
}

}  // namespace

void QueueWorkItem(ServiceState& service, void (*routine)(ServiceState&), ULONG flags) {
    auto item = std::make_unique<WorkItem>(WorkItem{routine, &service});
    if (QueueUserWorkItem(&RunWorkItem, item.get(), flags) == FALSE) {
        throw GetLastError();
    }
    // The pool's thread owns the record now, and may have freed it already.
    static_cast<void>(item.release());
}
