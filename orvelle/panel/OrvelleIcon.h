// The program's sign: a bolt across a wave. Drawn, so that it is sharp at every size.
#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>

class QPainter;

namespace orvelle {

/// Size of the sign in device-independent pixels.
inline constexpr int kIconWidth = 22;
inline constexpr int kIconHeight = 16;

/// The sign on a transparent ground; faint while not `active`. On macOS a mask, of which only the
/// alpha counts. GUI thread.
QImage OrvelleIcon(bool active, double devicePixelRatio = 1.0,  // NOLINT(*-identifier-naming)
                   const QColor& colour = Qt::black);

/// Draws it with the bottom left corner of its 22 x 16 box at the painter's origin, y upwards.
/// False, and nothing drawn, where the painter has nothing to paint on.
bool drawOrvelleIcon(QPainter& painter, bool active, const QColor& colour);

/// The sign in the square sizes for which tray hosts ask.
QIcon trayIcon(bool active, const QColor& colour);

/// The sign in its own proportions, for screens of one, two and three pixels a point. A mask.
QIcon wideIcon(bool active, const QColor& colour);

}  // namespace orvelle
