// While the entities a command collected are re-layered, every resolution
// asks the drawing the same questions: its standard, exception list, rules,
// functions, separator and project object. Nothing in the batch changes the
// answers, so a batch looks each up once. Outside a batch every lookup goes
// to the drawing as before.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/dbobject.h"
#include "suite/zeftproject.h"
#include "zeftlayermanager/rulefield.h"

class AcRxClass;

class ZEFTResolutionBatch {
public:
    explicit ZEFTResolutionBatch(AcDbDatabase* db);
    ~ZEFTResolutionBatch();
    ZEFTResolutionBatch(const ZEFTResolutionBatch&) = delete;
    ZEFTResolutionBatch& operator=(const ZEFTResolutionBatch&) = delete;

    // The batch open on db, or null.
    static ZEFTResolutionBatch* of(AcDbDatabase* db);
    // The project object of db: the batch's when one is open, else a new one
    // kept in `owned`. Null when the drawing has none.
    static ZEFTProjectObject* projectOf(AcDbDatabase* db, std::unique_ptr<ZEFTProjectObject>& owned);

    std::optional<AcDbObjectId> standard, exception;
    std::optional<std::wstring> separator;
    std::map<std::wstring, AcDbObjectId> functions;
    // By (draft context, working mode): whether a rule was found, and its fields.
    std::map<std::pair<bool, int>, std::pair<bool, std::vector<RuleField>>> rules;
    // By class: whether the rules apply, and the layer imposed (when set).
    struct Exception {
        bool applicable = true;
        std::optional<std::wstring> imposed;
    };
    std::map<const AcRxClass*, Exception> exceptions;
    // Answers of predefined functions that do not depend on the entity, by
    // function and context: whether the project answered, and the answer.
    using PredefinedKey = std::tuple<std::wstring, const void*, bool, int>;
    std::map<PredefinedKey, std::pair<bool, std::wstring>> predefined;
    // By cleaned name and whether the layer was turned on: the layer.
    std::map<std::pair<std::wstring, bool>, AcDbObjectId> layers;
    // By class, what its names and bases say: a suite class (its entities
    // carry their own rules), a class whose entities are never layered, and
    // viewports.
    struct ClassTraits {
        bool suite = false;
        bool unlayered = false;
        bool viewport = false;
    };
    std::map<const AcRxClass*, ClassTraits> classes;
    // By class, for classes whose entities all go to the same layer in this
    // batch: that layer (null when they stay on "0").
    std::map<const AcRxClass*, AcDbObjectId> resolved;

private:
    AcDbDatabase* db_;
    ZEFTResolutionBatch* previous_;
    bool projectLooked_ = false;
    std::unique_ptr<ZEFTProjectObject> project_;
};
