/*
Filter: sharpen
Description: Amplifies fine detail
Parameter: float amount; default 1; min 0; max 4
*/
void sharpen(float amount) {
    vec3 around = texture2D(kel_frame, kel_at - vec2(kel_pixel.x, 0.0)).rgb +
                  texture2D(kel_frame, kel_at + vec2(kel_pixel.x, 0.0)).rgb +
                  texture2D(kel_frame, kel_at - vec2(0.0, kel_pixel.y)).rgb +
                  texture2D(kel_frame, kel_at + vec2(0.0, kel_pixel.y)).rgb;
    vec3 detail = texture2D(kel_frame, kel_at).rgb - 0.25 * around;
    gl_FragColor.rgb = clamp(gl_FragColor.rgb + amount * detail, 0.0, 1.0);
}
