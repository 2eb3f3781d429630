#include "apps/zeftcad/panels.h"

#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <map>

namespace zeftcad {

QColor paletteColour(int index)
{
    static const QColor base[] = {Qt::black,        Qt::red,  Qt::yellow,     Qt::green, Qt::cyan,
                                  Qt::blue,         Qt::magenta, Qt::white,   QColor(128, 128, 128),
                                  QColor(192, 192, 192)};
    if (index < 0 || index > 255) return Qt::black;
    if (index < 10) return base[index];
    if (index >= 250) {
        static const int greys[] = {51, 91, 132, 173, 214, 255};
        const int g = greys[index - 250];
        return QColor(g, g, g);
    }
    // Ten shades per hue, 15 degrees apart: darker in pairs, the odd one paler.
    static const double value[] = {1.0, 1.0, 0.65, 0.65, 0.5, 0.5, 0.3, 0.3, 0.15, 0.15};
    const int shade = index % 10;
    return QColor::fromHsvF(float((index / 10 - 1) * 15 % 360) / 360.0f, shade % 2 ? 0.5f : 1.0f, float(value[shade]));
}

namespace {

QIcon swatch(int index)
{
    static std::map<int, QIcon> cache;
    auto it = cache.find(index);
    if (it != cache.end()) return it->second;
    QPixmap pixmap(12, 12);
    pixmap.fill(paletteColour(index));
    QPainter painter(&pixmap);
    painter.setPen(QColor(96, 96, 96));
    painter.drawRect(0, 0, 11, 11);
    painter.end();
    return cache.emplace(index, QIcon(pixmap)).first->second;
}

QString colourText(int index)
{
    static const char* const names[] = {"", "red", "yellow", "green", "cyan", "blue", "magenta", "white"};
    if (index >= 1 && index <= 7) return QStringLiteral("%1 %2").arg(index).arg(QLatin1String(names[index]));
    return QString::number(index);
}

QVariant checkState(bool on) { return on ? Qt::Checked : Qt::Unchecked; }

}  // namespace

void EntityModel::setRows(std::vector<EntityRow> rows)
{
    beginResetModel();
    rows_ = std::move(rows);
    endResetModel();
}

int EntityModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(rows_.size()); }

int EntityModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant EntityModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || std::size_t(index.row()) >= rows_.size() || role != Qt::DisplayRole) return {};
    const EntityRow& row = rows_[std::size_t(index.row())];
    switch (index.column()) {
        case Handle: return QString::fromStdString(row.handle);
        case Class: return QString::fromStdWString(row.className);
        case Layer: return QString::fromStdWString(row.layer);
        case Space: return row.paperSpace ? tr("Paper") : tr("Model");
        default: return {};
    }
}

QVariant EntityModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (section) {
        case Handle: return tr("Handle");
        case Class: return tr("Class");
        case Layer: return tr("Layer");
        case Space: return tr("Space");
        default: return {};
    }
}

void LayerModel::setRows(std::vector<LayerRow> rows)
{
    beginResetModel();
    rows_ = std::move(rows);
    endResetModel();
}

int LayerModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(rows_.size()); }

int LayerModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant LayerModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || std::size_t(index.row()) >= rows_.size()) return {};
    const LayerRow& row = rows_[std::size_t(index.row())];
    if (role == Qt::DisplayRole) {
        if (index.column() == Name) return QString::fromStdWString(row.name);
        if (index.column() == Colour) return colourText(row.colour);
    } else if (role == Qt::CheckStateRole) {
        if (index.column() == On) return checkState(row.on);
        if (index.column() == Frozen) return checkState(row.frozen);
        if (index.column() == Locked) return checkState(row.locked);
    } else if (role == Qt::DecorationRole && index.column() == Colour) {
        return swatch(row.colour);
    }
    return {};
}

QVariant LayerModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    switch (section) {
        case Name: return tr("Name");
        case On: return tr("On");
        case Frozen: return tr("Frozen");
        case Locked: return tr("Locked");
        case Colour: return tr("Colour");
        default: return {};
    }
}

}  // namespace zeftcad
