#include "app/model/AppTypes.h"

namespace tarnbridge::app {

bool showsDuringScan(StorageView view)
{
    switch (view) {
    case StorageView::treemap:
    case StorageView::folders:
    case StorageView::sunburst:
    case StorageView::flame:
    case StorageView::bubbles:
    case StorageView::mindMap:
        return true;
    case StorageView::topSizes:
    case StorageView::ageMap:
    case StorageView::table:
        break;
    }
    return false;
}

const char* themeName(AppTheme theme)
{
    switch (theme) {
    case AppTheme::paper: return "Paper";
    case AppTheme::linen: return "Linen";
    case AppTheme::sage: return "Sage";
    case AppTheme::mist: return "Mist";
    case AppTheme::slate: break;
    }
    return "Slate";
}

AppTheme themeNamed(const QString& name)
{
    for (AppTheme theme : {AppTheme::paper, AppTheme::linen, AppTheme::sage, AppTheme::mist, AppTheme::slate})
        if (name == QLatin1String(themeName(theme)))
            return theme;
    return AppTheme::paper;
}

} // namespace tarnbridge::app
