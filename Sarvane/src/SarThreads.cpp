#include "SarThreads.h"

namespace Ostrel {

Vantu::RefCount<VantuThread::Thread> SarStartThread(const char* name, Vantu::SmartPtr<VantuThread::Function> function,
                                                   VantuThread::Priority priority) {
    Vantu::RefCount<VantuThread::Thread> thread(new VantuThread::Thread(name, std::move(function)));
    thread->SetPriority(priority);
    thread->Run();
    return thread;
}

}  // namespace Ostrel
