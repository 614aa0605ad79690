#include "app/ZVQtMainQueue.h"

#include <QCoreApplication>
#include <QThread>

#include "ZVLog.h"

void ZVQtMainQueue::post(std::function<void()> block) {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) ZVFatalError("The main queue needs the application object");
    QMetaObject::invokeMethod(app, std::move(block), Qt::QueuedConnection);
}

bool ZVQtMainQueue::isMainThread() const {
    QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}
