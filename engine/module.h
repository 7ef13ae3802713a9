/* The module of the C interface. */
#ifndef TAVRIK_ENGINE_MODULE_H
#define TAVRIK_ENGINE_MODULE_H

#include <memory>
#include <string>

#include "scanner/module.h"
#include "tavrik/tavrik.h"

struct tavrik_module {
    std::shared_ptr<const tavrik::scanner::Module> loaded;
    std::string path;
};

#endif
