// The row functions of the opt-in readings, chosen once per plan.
#include "pallion/convert/detail/RowPlanRows.hpp"

namespace Pallion {

RowPlan::StoreFunction RowPlan::chooseStore() const {
    switch (mode_) {
        case 1:
            return chooseIn<true, false, '.'>();
        case 2:
            return chooseIn<false, true, '.'>();
        case 3:
            return chooseIn<true, true, '.'>();
        case 4:
            return chooseIn<false, false, ','>();
        case 5:
            return chooseIn<true, false, ','>();
        case 6:
            return chooseIn<false, true, ','>();
        default:
            return chooseIn<true, true, ','>();
    }
}

template <bool Whole, bool Blanks, char Point>
RowPlan::StoreFunction RowPlan::chooseIn() const {
    if (dense_) {
        switch (uniform_) {
            case Kind::Double:
                return &RowPlan::storeDense<Kind::Double, Whole, Blanks, Point>;
            case Kind::Float:
                return &RowPlan::storeDense<Kind::Float, Whole, Blanks, Point>;
            default:
                return &RowPlan::storeDense<Kind::Mixed, Whole, Blanks, Point>;
        }
    }
    switch (uniform_) {
        case Kind::Double:
            return &RowPlan::storeRow<Kind::Double, Whole, Blanks, Point>;
        case Kind::Float:
            return &RowPlan::storeRow<Kind::Float, Whole, Blanks, Point>;
        default:
            return &RowPlan::storeRow<Kind::Mixed, Whole, Blanks, Point>;
    }
}

}  // namespace Pallion
