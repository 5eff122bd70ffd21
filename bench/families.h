// One function per family, called by the program: a linker keeps what is named.
#pragma once

namespace quillon::bench {

void AddArithmetic();            // pixel arithmetic, geometric transforms
void AddPointOperations();       // colour to grey, thresholds
void AddBlobOperations();        // labelling, features, fill-up
void AddMorphOperations();       // dilation, erosion and their composites
void AddNeighbourhoodFilters();  // edges, sharpening, medians
void AddEdgeMatching();          // edge-based matching
void AddSmoothingOperations();   // Gaussians, means, convolution
void AddTemplateMatching();      // image pyramid, template matching
void AddCalibration();           // flat field, lens distortion, colour spaces

}  // namespace quillon::bench
