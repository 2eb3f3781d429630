// The lists of the dock panels: the drawing's entities and its layers, as
// table models refilled from the session after every command.
#pragma once

#include <QAbstractTableModel>
#include <QColor>
#include <vector>

#include "apps/zeftcad/session.h"

namespace zeftcad {

// The colour an index of the 256-colour palette stands for (7 is white on
// a dark drawing area; shown black on a light one).
QColor paletteColour(int index);

class EntityModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Handle, Class, Layer, Space, ColumnCount };
    using QAbstractTableModel::QAbstractTableModel;
    void setRows(std::vector<EntityRow> rows);
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    std::vector<EntityRow> rows_;
};

class LayerModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Name, On, Frozen, Locked, Colour, ColumnCount };
    using QAbstractTableModel::QAbstractTableModel;
    void setRows(std::vector<LayerRow> rows);
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    std::vector<LayerRow> rows_;
};

}  // namespace zeftcad
