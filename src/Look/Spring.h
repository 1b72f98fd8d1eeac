#pragma once
// A damped spring released at rest from 0 towards 1, in physical terms:
// mass, stiffness and damping coefficient. Under-damped springs overshoot and
// ring down, critically and over-damped ones creep in without overshooting.

struct Spring {
    double mass = 1;
    double stiffness = 1;
    double damping = 2;

    // The designer's terms: the period of the undamped oscillation in seconds
    // and the fraction of critical damping, for unit mass.
    static Spring fromResponse(double response, double dampingFraction);

    double naturalFrequency() const; // ω0, radians per second
    double dampingRatio() const;     // ζ: 1 is critical
    // Progress at t seconds after the release (0 before it).
    double valueAt(double t) const;
    // Time after which the motion's envelope stays within `tolerance` of 1.
    double settlingDuration(double tolerance = 0.001) const;
};
