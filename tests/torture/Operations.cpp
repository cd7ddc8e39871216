#include "Operations.h"

const std::vector<Row>& operations()
{
    static const Table table = [] {
        Table all;
        addErrorRows(all);
        addBaseRows(all);
        addCompositeRows(all);
        addStreamRows(all);
        addInventoryRows(all);
        addXdrRows(all);
        addDeviceRows(all);
        addManagerRows(all);
        return all;
    }();
    return table.rows();
}
