#pragma once

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Window.h"

// Converts between the device units and the logical units of a mapping mode by two factors, logical units per
// device unit. A negative mode is the mode of its magnitude with the y axis turned round. Modes 10 and 11
// have fixed factors (3 and 0.1) and belong to their callers; every other one is asked of a device context,
// which must know it.
//
// Factors that cannot be computed yet, because there is no main window, are 0; the next use tries again.
// Results round half away from zero. Use on the thread of the user interface.
class TC_API TC_Metric {
 public:
    // Of the main window.
    explicit TC_Metric(int mapMode);

    // The context keeps its own mapping mode. It may be null for the modes of fixed factors; for another one
    // a null context changes nothing.
    void CalcMetric(int mapMode, CDC* context);
    // Of that window; null: of the main window, and without one nothing changes.
    void CalcMetric(int mapMode, CWnd* window);
    void SetFactor(const double& x, const double& y);

    double GetXFactor() const;
    double GetYFactor() const;

    void DPtoLP(CPoint* points, int count) const;
    void DPtoLP(CRect* rect) const;
    void DPtoLP(CSize* size) const;
    void LPtoDP(CPoint* points, int count) const;
    void LPtoDP(CRect* rect) const;
    void LPtoDP(CSize* size) const;

 private:
    TC_LOCAL void Compute(CDC* context) const;
    TC_LOCAL void ComputeFrom(CWnd* window) const;

    // Computed at the first use when there was no main window before.
    mutable double xFactor = 0;
    mutable double yFactor = 0;
    int mode;
};
